// SPDX-License-Identifier: MIT
// Events and semaphores, each without a name and with one. Those that wait for a named one are
// processes. tests/explorer goes through the interleavings.
#include "tests/platform/waited_object.h"
#include "tests/support/processes.h"
#include "tests/support/threads_at_once.h"
#include <chrono>
#include <cstring>
#include <deque>
#include <new>
#include <random>
#include <string>

#include <sys/mman.h>

namespace {

using namespace zel::platform;
using namespace std::chrono_literals;

enum kind { auto_event, manual_event, semaphore };

class waitables : public testing::TestWithParam<bool> {
protected:
    void * create(kind what, std::int32_t initial, std::int32_t maximum = 1) const
    {
        std::string const name = GetParam() ? fresh_name() : "";
        return what == semaphore ? create_semaphore(initial, maximum, name.c_str())
                                 : create_event(what == manual_event, initial != 0, name.c_str());
    }
    time_limit const limit_{60};
};

INSTANTIATE_TEST_SUITE_P(of, waitables, testing::Bool(),
                         [](auto const & row) { return row.param ? "named" : "unnamed"; });

// Those that have come to their wait one after the other.
class crowd {
public:
    crowd(bool processes, object const & waited)
        : are_processes_(processes)
        , waited_(waited)
    {
    }
    void add()
    {
        auto const body = [this, self = static_cast<char>('a' + count_++)] {
            if (waited_.wait(30'000) == wait_object_0) {
                shared_.order[shared_.entered++] = self;
                ++shared_.written;
            }
            return 0;
        };
        if (are_processes_) {
            until_asleep(processes_.emplace_back(body).id());
        } else {
            threads_.emplace_back(body);
        }
    }
    void kill(std::size_t which) { processes_.at(which).kill(); }
    // Who has passed as soon as there are so many, and a little later.
    std::string passed(std::size_t count) const
    {
        for (int i = 0; i < 10'000 && shared_.written < count; ++i) {
            std::this_thread::sleep_for(1ms);
        }
        std::this_thread::sleep_for(5ms);
        return {shared_.order, shared_.order + shared_.written};
    }

private:
    struct results {
        std::atomic<std::size_t> entered, written;
        std::atomic<char> order[4];
    };
    bool are_processes_;
    object const & waited_;
    int count_ = 0;
    results & shared_ = *new (::mmap(nullptr, sizeof(results), PROT_READ | PROT_WRITE,
                                     MAP_SHARED | MAP_ANONYMOUS, -1, 0)) results{};
    std::deque<child_process> processes_;
    std::deque<sleeper> threads_;
};

TEST_P(waitables, let_through_whom_they_should)
{
    // s set, r reset, p pulse, 1 to 3 a release of so many, 4 of too many; t a test that is let
    // through, x one that is not, X a wait likewise; w one more waiter comes, k the second is
    // killed; a to c: this one has passed and nobody after it, ? whoever it is.
    struct {
        kind what;
        std::int32_t initial;
        char const * steps;
    } const rows[] = {
        {auto_event, 0, "xstxsstx"}, // two sets are one
        {auto_event, 1, "txXsrxspxXXst"},
        {auto_event, 0, "wwwsxasbsxcst"}, // a unit is given, not put down
        {auto_event, 0, "wwwsxaksxcst"},
        {auto_event, 0, "wwwpxapbpcpx"},
        {manual_event, 1, "ttpxsttrXXspXstt"},
        {manual_event, 0, "wwwp???xwst?t"},
        {semaphore, 0, "www1xa1b1c1tx"},
        {semaphore, 0, "www1xak1c1t"},
        {semaphore, 0, "X4www42??3cttx"}, // the one that waited in vain has left
    };
    for (auto const & row : rows) {
        if (!GetParam() && std::strchr(row.steps, 'k') != nullptr) {
            continue;
        }
        object const waited(create(row.what, row.initial, 3));
        crowd waiters(GetParam(), waited);
        std::size_t count = 0;
        auto const goes = [&](char const * step) {
            std::string passed;
            switch (*step) {
            case 's':
                return set_event(waited);
            case 'r':
                return reset_event(waited);
            case 'p':
                return pulse_event(waited);
            case 't':
                return waited.wait(0) == wait_object_0;
            case 'x':
            case 'X':
                return waited.wait(*step == 'x' ? 0 : 1) == wait_timeout;
            case 'w':
                waiters.add();
                return true;
            case 'k':
                waiters.kill(1);
                return true;
            case '1':
            case '2':
            case '3':
            case '4':
                return release_semaphore(waited, *step - '0', nullptr) == (*step != '4');
            default:
                passed = waiters.passed(++count);
                return step[1] == '?'
                    || (passed.size() == count && (*step == '?' || passed.back() == *step));
            }
        };
        for (char const * step = row.steps; *step != '\0'; ++step) {
            EXPECT_TRUE(goes(step)) << row.steps << " at " << step;
        }
    }
}

TEST_P(waitables, count_and_refuse_what_passes_the_maximum)
{
    for (auto const & [initial, maximum] : {std::pair{-1, 1}, {2, 1}, {0, 0}, {0, -1}}) {
        EXPECT_EQ(create(semaphore, initial, maximum), nullptr);
        EXPECT_EQ(last_error(), 87U);
    }
    object const units(create(semaphore, 1, 0x7FFFFFFF));
    std::int32_t previous = -7;
    EXPECT_FALSE(release_semaphore(units, 0x7FFFFFFF, &previous));
    EXPECT_EQ(last_error(), 298U);
    EXPECT_FALSE(release_semaphore(units, 0, &previous));
    EXPECT_EQ(last_error(), 87U);
    EXPECT_EQ(previous, -7);
    EXPECT_TRUE(release_semaphore(units, 0x7FFFFFFE, &previous));
    EXPECT_EQ(previous, 1);
}

TEST_P(waitables, lose_and_make_no_unit_nor_a_wake_up)
{
    object const units(create(semaphore, 3, 3));
    std::atomic<int> inside{0};
    auto const end = std::chrono::steady_clock::now() + 1500ms;
    run_at_once(6, [&](int thread) {
        std::minstd_rand random(static_cast<unsigned>(thread) + 1);
        while (std::chrono::steady_clock::now() < end) {
            std::uint32_t const limits[] = {0, 1, 2, 20'000};
            std::uint32_t const limit = limits[random() % 4];
            if (units.wait(limit) == wait_object_0) {
                EXPECT_LE(++inside, 3);
                if (random() % 8 == 0) {
                    std::this_thread::sleep_for(50us);
                }
                --inside;
                EXPECT_TRUE(release_semaphore(units, 1, nullptr));
            } else {
                EXPECT_LT(limit, 20'000U);
            }
        }
    });
    EXPECT_EQ(units.wait(0) + units.wait(0) + units.wait(0), 0U);
    EXPECT_EQ(units.wait(0), wait_timeout);
}

} // namespace
