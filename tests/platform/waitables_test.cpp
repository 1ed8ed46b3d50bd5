// SPDX-License-Identifier: MIT
// Events and semaphores, each without a name and with one. The explorer goes through what several
// waiters meet; here they are processes, whom the host keeps in a queue.
#include "tests/platform/waited_object.h"
#include "tests/support/processes.h"
#include "tests/support/threads_at_once.h"
#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <poll.h>
#include <unistd.h>

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

// Processes that have come to their wait one after the other; each tells its letter when it passes.
class crowd {
public:
    explicit crowd(object const & waited)
        : waited_(waited)
    {
        EXPECT_EQ(::pipe(pipe_), 0);
    }
    ~crowd()
    {
        ::close(pipe_[0]);
        ::close(pipe_[1]);
    }
    bool add()
    {
        auto const body = [this, self = static_cast<char>('a' + processes_.size())] {
            return waited_.wait(30'000) == wait_object_0 && ::write(pipe_[1], &self, 1) == 1;
        };
        until_asleep(processes_.emplace_back(body).id());
        return true;
    }
    bool kill(std::size_t which)
    {
        processes_.at(which).kill();
        return true;
    }
    // Who passes next.
    char passed()
    {
        char who = 0;
        return ::read(pipe_[0], &who, 1) == 1 ? who : '-';
    }
    bool nobody_passes()
    {
        pollfd told{pipe_[0], POLLIN, 0};
        return ::poll(&told, 1, 5) == 0;
    }

private:
    object const & waited_;
    int pipe_[2];
    std::vector<child_process> processes_;
};

// What a step of a test does to an object, and whether that went as it should: s set, r reset, p
// pulse, 1 to 3 a release of so many, 4 of too many; t a test that is let through, x one that is not,
// X a wait likewise; w one more waiter comes, k the second is killed; a to c: this one passes, *
// whoever it is, - and nobody else.
bool goes(char step, object const & waited, crowd & waiters)
{
    switch (step) {
    case 's':
        return set_event(waited);
    case 'r':
        return reset_event(waited);
    case 'p':
        return pulse_event(waited);
    case 't':
        return waited.wait(0) == wait_object_0;
    case 'x':
        return waited.wait(0) == wait_timeout;
    case 'X':
        return waited.wait(1) == wait_timeout;
    case 'w':
        return waiters.add();
    case 'k':
        return waiters.kill(1);
    case '*':
        return waiters.passed() != '-';
    case '-':
        return waiters.nobody_passes();
    default:
        return step < 'a' ? release_semaphore(waited, step - '0', nullptr) == (step != '4')
                          : waiters.passed() == step;
    }
}

TEST_P(waitables, let_through_whom_they_should)
{
    struct {
        kind what;
        std::int32_t initial;
        char const * steps;
    } const rows[] = {
        {auto_event, 0, "xstxsstx"}, // two sets are one
        {auto_event, 1, "txXsrxspxXXst"},
        {manual_event, 1, "ttpxsttrXXspXstt"},
        {semaphore, 0, "x1tX42t2tttx"},
        {auto_event, 0, "wwwsxa-sbx-sc-st"}, // a unit is given, not put down
        {auto_event, 0, "wwwsxa-ksxc-st"},
        {auto_event, 0, "wwwpxa-pb-pc-px"},
        {manual_event, 0, "wwwp***x"},
        {manual_event, 0, "wwws***t"},
        {semaphore, 0, "www1xa-1b-1c-1tx"},
        {semaphore, 0, "www1xa-k1c-1t"},
        {semaphore, 0, "X4www42**-3cttx"}, // the one that waited in vain has left
    };
    for (auto const & row : rows) {
        if (GetParam() || std::strchr(row.steps, 'w') == nullptr) {
            object const waited(create(row.what, row.initial, 3));
            crowd waiters(waited);
            for (char const * step = row.steps; *step != '\0'; ++step) {
                EXPECT_TRUE(goes(*step, waited, waiters)) << row.steps << " at " << step;
            }
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
            std::uint32_t const limits[] = {0, 1, 2, infinite};
            std::uint32_t const limit = limits[random() % 4];
            if (units.wait(limit) == wait_object_0) {
                EXPECT_LE(++inside, 3);
                if (random() % 8 == 0) {
                    std::this_thread::sleep_for(50us);
                }
                --inside;
                EXPECT_TRUE(release_semaphore(units, 1, nullptr));
            } else {
                EXPECT_NE(limit, infinite);
            }
        }
    });
    EXPECT_EQ(units.wait(0) + units.wait(0) + units.wait(0), 0U);
    EXPECT_EQ(units.wait(0), wait_timeout);
}

} // namespace
