// Tests database addresses, the search for the primary, and the reports of the health monitor.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "store/db/health_monitor.h"
#include "store/sql/address.h"
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

TEST(Address, isRefusedWithoutAPartOfThePassword)
{
    for (const char* szSecret :
         {"%sec", "sec%2", "%00sec", "s%ec%", "sec@ret", "s/ec", "s?ec", "s#e%c", "%", "sec%zz@x"}) {
        for (const std::string& url : {"postgresql://me:" + std::string(szSecret) + "@host/db",
                                       "postgres://host/db?password=" + std::string(szSecret)}) {
            try {
                store::addressOf(url);
                EXPECT_NE(url.find("password"), url.npos) << url;  // there, @ / and ? stand for themselves
            } catch (const std::runtime_error& error) {
                EXPECT_EQ(std::string(error.what()).find("sec"), std::string::npos) << error.what();
                EXPECT_EQ(std::string(error.what()).find("ec%"), std::string::npos) << error.what();
            }
        }
    }
}

TEST(Primary, isSoughtAtEachServerOfTheUrl)
{
    store::Primary primary("postgresql://u@[::1]:1,b/db?connect_timeout=2");
    std::vector<std::string> urls;
    const auto connectToSecond = [&urls](const std::string& url) {
        urls.push_back(url.substr(url.find('=')));
        return url.find("%62") != url.npos ? url : throw std::runtime_error("no");
    };
    primary.connect(connectToSecond);
    primary.connect(connectToSecond);
    primary.tryAnotherFirst();
    primary.connect(connectToSecond);
    const std::string first = "=2&host=%3A%3A%31&port=%31&target_session_attrs=read-write";
    const std::string second = "=2&host=%62&port=&target_session_attrs=read-write";
    EXPECT_EQ(urls, (std::vector<std::string>{first, second, second, first, second}));
    EXPECT_THROW(primary.connect([](const std::string&) -> int { throw std::runtime_error("no"); }), store::Refusal);
}

TEST(HealthMonitor, reportsEachOutageOnce)
{
    std::vector<std::string> lines;
    store::setOutageSink([&lines](const std::string& line) {
        lines.push_back(line);
        throw 1;  // must not end the monitor
    });
    const uint64_t before = store::outageCount();
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
    EXPECT_EQ(store::outageCount() - before, 2u);
    EXPECT_GE(outcomes.size(), 6u);  // it also probes by itself
    EXPECT_EQ(lines, (std::vector<std::string>{"the store does not answer: gone", "the store answers again after 0 s",
                                               "the store does not answer: no reason given"}));
}

}  // namespace
