// SPDX-License-Identifier: MIT
// Each call of the host that an operation makes is refused in turn, falls short, is interrupted, or
// is the last thing that the process does.
#include "tests/faults/operations.h"
#include "tests/faults/traced_calls.h"
#include "tests/support/sanitizers.h"
#include <algorithm>
#include <cstdio>

namespace {

namespace fs = std::filesystem;

enum : int { succeeded = 0, failed, wrong, raised_another, leaked = 100 }; // plus a number

std::ptrdiff_t open_descriptors()
{
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

/// In a child: the operation with the fault in it, and once more without one.
int try_twice(operation const & tried, places const & at, std::ptrdiff_t descriptors)
{
    traced_calls::mark();
    outcome const first = attempt(tried, at);
    traced_calls::mark();
    if (first == outcome::raised_another) {
        return raised_another;
    }
    bool const is_done = first == outcome::done;
    if ((!is_done && attempt(tried, at) != outcome::done) || !tried.done(at)) {
        return wrong;
    }
    std::ptrdiff_t const now = open_descriptors();
    return descriptors == 0 ? leaked + static_cast<int>(now)
        : now > descriptors ? leaked
        : is_done           ? succeeded
                            : failed;
}

/// Nothing is half there, and nothing is lost.
void expect_old_or_new(places const & at, bool was_killed)
{
    std::string const target = at.near.read("target");
    EXPECT_TRUE(target == "old" || target == fresh_content);
    EXPECT_TRUE(at.near.read("source") == fresh_content || at.near.read("made") == fresh_content
                || at.far.read("made") == fresh_content);
    EXPECT_TRUE(at.near.exists("link") || at.far.exists("link"));
    EXPECT_TRUE(at.near.read("settings").starts_with(old_settings.substr(0, 3000)));
    for (auto const * place : {&at.near, &at.far}) {
        for (auto const & entry : fs::directory_iterator(place->name())) {
            EXPECT_TRUE(was_killed || !entry.path().filename().string().starts_with("."))
                << entry.path();
        }
    }
}

class host_calls : public testing::TestWithParam<operation> {
protected:
    void SetUp() override
    {
        if (under_address_sanitizer || under_thread_sanitizer) {
            GTEST_SKIP() << "calls of the sanitizer's own would fail too";
        }
        if (!traced_calls::are_possible()) {
            GTEST_SKIP() << "this machine lets no process trace its children";
        }
        whole_ = run({}, {}, 0);
        ASSERT_GE(whole_.status, int{leaked});
    }
    void TearDown() override { std::printf("%s: %d points\n", GetParam().name, points_); }

    static traced_calls::outcome run(traced_calls::fault const & fault, places const & at,
                                     int descriptors)
    {
        return traced_calls::run(fault, [&] { return try_twice(GetParam(), at, descriptors); });
    }

    traced_calls::outcome whole_; // its calls, and the descriptors that are open then
    int points_ = 0;
};

INSTANTIATE_TEST_SUITE_P(of, host_calls,
                         testing::ValuesIn(calling_operations.begin(), calling_operations.end()),
                         [](auto const & each) {
                             std::string name = each.param.name;
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name;
                         });

TEST_P(host_calls, fail_in_turn_and_leave_old_or_new)
{
    for (auto const & row : traced_calls::documented) {
        for (int const call : row.calls) {
            for (int const error : row.errors) {
                bool hit = whole_.calls.contains(call);
                for (int n = 1; hit; ++n, points_ += hit) {
                    SCOPED_TRACE(testing::Message()
                                 << "system call " << call << ", " << n << "th, fault " << error);
                    places const at;
                    auto const met = run({call, n, error}, at, whole_.status - leaked);
                    hit = met.hit;
                    EXPECT_TRUE(met.status == succeeded || met.status == failed) << met.status;
                    EXPECT_TRUE(met.status != failed || (hit && error != traced_calls::falls_short))
                        << met.status;
                    expect_old_or_new(at, false);
                    ASSERT_LT(n, 200);
                }
            }
        }
    }
}

TEST_P(host_calls, kill_the_process_and_leave_old_or_new)
{
    for (auto const & [call, count] : whole_.calls) {
        for (int n = 1; n <= count; ++n, ++points_) {
            SCOPED_TRACE(testing::Message() << "system call " << call << ", " << n << "th");
            places const at;
            run({call, n, traced_calls::kills}, at, 0);
            if (!GetParam().may_break) {
                expect_old_or_new(at, true);
                EXPECT_GE(run({}, at, 0).status, int{leaked});
            }
        }
    }
}

} // namespace
