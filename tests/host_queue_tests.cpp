// Whose job the host runs next, and that threads which hand each other jobs lose none.
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

// What comes to pass on a queue of that size. A letter stands for an account: a capital one adds a job, a small one
// finishes one, and whatever may start then starts. started: the jobs by account and number, "!" for one that found no
// place.
struct Course {
    const char* fault;
    size_t workers, places;
    const char* events;
    const char* started;
};

constexpr Course kCourses[] = {
    {"an account's jobs change places, or others wait for all of them", 1, 99, "AAABBaaba", "A1 A2 B1 A3 B2 "},
    {"an account takes more than half of what is idle, or leaves it idle", 8, 99, "AAAAABBBCCDDE",
     "A1 A2 A3 A4 B1 B2 C1 D1 "},
    {"who may not start keeps others waiting, or loses its turn", 4, 99, "AAABBaCbc", "A1 A2 B1 A3 C1 B2 "},
    {"an account takes more than half of the places, or leaves them empty", 1, 4, "AAAABBCD", "A1 ! ! ! "},
    {"a place is not given back", 1, 2, "AAAaAAaA", "A1 ! A2 ! A4 "},
    {"a worker is not given back, or is twice", 2, 99, "AaAaAaAAABB", "A1 A2 A3 A4 B1 "},
};

void startAll(FairQueue& queue)
{
    while (const auto started = queue.start()) {
        started->job();
    }
}

std::string play(const Course& course)
{
    FairQueue queue(course.workers, course.places);
    std::string started;
    std::map<char, int> added;
    for (const char* pEvent = course.events; *pEvent != '\0'; ++pEvent) {
        const char account = static_cast<char>(std::toupper(*pEvent));
        if (account != *pEvent) {
            queue.finish(account);
        } else if (const std::string name = account + std::to_string(++added[account]) + ' ';
                   !queue.add(account, [&started, name] { return started += name, nullptr; })) {
            started += "! ";
        }
        startAll(queue);
    }
    return started;
}

TEST(FairQueue, accountsShareWorkersAndPlaces)
{
    for (const Course& course : kCourses) {
        EXPECT_EQ(play(course), course.started) << course.fault;
    }
}

// A chain of jobs, each of which adds the next one for another account when it is done.
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

TEST(HandlerPoolThreads, runEveryJobThatWasTakenAndNoneAfterTheStop)
{
    constexpr int kThreads = 4, kChains = 50, kLinks = 40;
    std::atomic<int> running{kThreads * kChains};
    host::HandlerPool pool(3, 1000);
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
    EXPECT_FALSE(pool.add(1, [] { return ADD_FAILURE(), nullptr; }));
}

}  // namespace
