// Tests the order in which the host starts jobs, and that no job is lost when several threads add jobs.
#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "host/calls/fair_queue.h"
#include "host/calls/handler_pool.h"

namespace {

using host::FairQueue;

// A sequence of events on a queue. Each letter stands for an account: the capital letter adds a job, the small one
// finishes one. After each event, all jobs that may start do. started: the jobs in the order in which they started, by
// account and number, with "!" for one that the queue refused.
struct Scenario {
    const char* expectation;
    size_t workers, reservedWorkers, slots, reservedSlots;
    const char* events;
    const char* started;
};

constexpr Scenario kScenarios[] = {
    {"accounts take turns, and each account's jobs start in their order", 1, 0, 99, 0, "AAABBaaba", "A1 A2 B1 A3 B2 "},
    {"an account gets up to half of the idle workers", 8, 0, 99, 0, "AAAAABBBCCDDE", "A1 A2 A3 A4 B1 B2 C1 D1 "},
    {"an account that may not start a job keeps its turn and delays no other", 4, 0, 99, 0, "AAABBaCbc",
     "A1 A2 B1 A3 C1 B2 "},
    {"an account gets up to half of the free queue", 1, 0, 4, 0, "AAAABBCD", "A1 ! ! ! "},
    {"a job that starts frees its slot in the queue", 1, 0, 2, 0, "AAAaAAaA", "A1 ! A2 ! A4 "},
    {"a job that finishes frees its worker once", 2, 0, 99, 0, "AaAaAaAAABB", "A1 A2 A3 A4 B1 "},
    {"other accounts leave a worker to each of the next ones", 8, 2, 99, 0, "AAAAABBBCCDDEFGa",
     "A1 A2 A3 A4 B1 B2 C1 D1 E1 F1 G1 "},
    {"other accounts leave a slot of the queue to each of the next ones", 1, 0, 4, 2, "AAAAABBCDEFa", "A1 ! ! ! ! A2 "},
};

// Returns a job that appends its name to the text.
FairQueue::Job makeJob(const std::string& name, std::string& text)
{
    return [&text, name] {
        text += name + ' ';
        return FairQueue::Completion();
    };
}

std::string play(const Scenario& scenario)
{
    FairQueue queue({scenario.workers, scenario.reservedWorkers}, {scenario.slots, scenario.reservedSlots});
    std::string started;
    std::map<char, int> added;
    for (const char* pEvent = scenario.events; *pEvent != '\0'; ++pEvent) {
        const char account = static_cast<char>(std::toupper(*pEvent));
        if (account != *pEvent) {
            queue.finish(account);
        } else if (!queue.add(account, makeJob(account + std::to_string(++added[account]), started))) {
            started += "! ";
        }
        while (const auto next = queue.start()) {
            next->job();
        }
    }
    return started;
}

TEST(FairQueue, accountsShareWorkersAndCapacity)
{
    for (const Scenario& scenario : kScenarios) {
        EXPECT_EQ(play(scenario), scenario.started) << scenario.expectation;
    }
}

// Adds a chain of jobs: the completion of each adds the next one, for another account.
void addChain(host::HandlerPool& pool, std::atomic<int>& running, int links)
{
    const auto job = [&pool, &running, links]() -> FairQueue::Completion {
        return [&pool, &running, links] {
            if (links > 1) {
                addChain(pool, running, links - 1);
            } else {
                --running;
            }
        };
    };
    while (!pool.add(links % 5, job)) {
        std::this_thread::yield();
    }
}

TEST(HandlerPoolThreads, runEveryJobThatWasAddedAndRefuseJobsAfterTheStop)
{
    constexpr int kThreads = 4, kChains = 50, kLinks = 40;
    std::atomic<int> running{kThreads * kChains};
    host::HandlerPool pool({2, 1}, {900, 100});
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int chain = 0; chain < kChains; ++chain) {
                addChain(pool, running, kLinks);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    while (running > 0) {
        std::this_thread::yield();
    }
    pool.stop();
    std::string text;
    EXPECT_FALSE(pool.add(1, makeJob("late", text)));
    EXPECT_EQ(text, "");
}

}  // namespace
