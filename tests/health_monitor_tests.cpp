// Tests database addresses, the reports of the health monitor, and the time limit for opening a store.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "store/db/address.h"
#include "store/db/health_monitor.h"
#include "store/store.h"

namespace {

TEST(Address, getsDefaultTimeoutsUnlessTheUrlSetsThem)
{
    const std::string rest = "keepalives_idle=5&keepalives_interval=2&keepalives_count=3&tcp_user_timeout=10000";
    const std::pair<const char*, std::string> cases[] = {
        {"postgresql://host/db", "postgresql://host/db?connect_timeout=2&" + rest},
        {"postgres:///db?user=a", "postgresql:///db?user=a&connect_timeout=2&" + rest},
        {"postgresql:///db?connect_timeout=30", "postgresql:///db?connect_timeout=30&" + rest}};
    for (const auto& [szUrl, place] : cases) {
        EXPECT_EQ(store::addressOf(szUrl).place, place);
        EXPECT_TRUE(store::addressOf(szUrl).isPostgres);
    }
    EXPECT_EQ(store::addressOf("sqlite:/a/b?c=1").place, "/a/b?c=1");
    for (const char* szUrl : {"", "sqlite:", "sqlite:a\"b", "mysql://host/db"}) {
        EXPECT_THROW(store::addressOf(szUrl), std::runtime_error) << szUrl;
    }
}

TEST(HealthMonitor, reportsEachOutageOnce)
{
    std::vector<std::string> lines;
    store::setOutageSink([&lines](const std::string& line) {
        lines.push_back(line);
        throw 1;  // must not end the monitor
    });
    std::atomic<const char*> szFailure = nullptr;
    std::vector<bool> outcomes;
    const auto probe = [&szFailure] {
        if (szFailure != nullptr) {
            throw std::runtime_error(szFailure);
        }
    };
    {
        store::HealthMonitor monitor(probe, [&outcomes](bool isAnswering) { outcomes.push_back(isAnswering); });
        for (const char* szNext : std::initializer_list<const char*>{nullptr, "gone", "still gone", nullptr, "", "x"}) {
            szFailure = szNext;
            monitor.probeNow();
            EXPECT_EQ(monitor.isAnswering(), szNext == nullptr);
        }
    }
    store::setOutageSink(nullptr);
    EXPECT_GE(outcomes.size(), 6u);  // it also probes by itself
    EXPECT_EQ(lines, (std::vector<std::string>{"the store does not answer: gone", "the store answers again after 0 s",
                                               "the store does not answer: no reason given"}));
}

TEST(HealthMonitor, openingAStoreOnASilentServerTimesOut)
{
    const int silent = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(silent, reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(listen(silent, 8), 0);
    ASSERT_EQ(getsockname(silent, reinterpret_cast<sockaddr*>(&address), &size), 0);
    try {
        VELQZEMStoreOpen("postgresql://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/db");
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("timeout"), std::string::npos) << error.what();
    }
    EXPECT_FALSE(store::isStoreAnswering());
    close(silent);
}

}  // namespace
