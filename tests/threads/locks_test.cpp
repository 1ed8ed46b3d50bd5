// SPDX-License-Identifier: MIT
#include "zel/threads/multi_lock.h"
#include "zel/threads/single_lock.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace {

// Keeps its calls: L a lock, W one without limit, u an unlock, U one with a count. Answers as told.
class recorder : public zel::sync_obj {
public:
    std::string calls;
    bool answer = true;
    bool raises = false;

    bool lock(std::uint32_t timeout) override { return take(timeout == 5 ? 'L' : 'W'); }
    bool unlock(std::uint32_t count, std::uint32_t *) override
    {
        return take(count == 3 ? 'U' : '?');
    }
    bool unlock() override { return take('u'); }

private:
    bool take(char call)
    {
        calls += call;
        if (raises) {
            throw std::runtime_error("told to");
        }
        return answer;
    }
};

TEST(single_lock, remembers_the_last_answer_and_gives_back_once)
{
    // Steps: the letters of the calls; behind - the object refuses.
    struct {
        bool now;
        char const * steps;
        bool locked; // after them
        char const * calls; // with those of construction and destruction
    } const rows[] = {
        {true, "", true, "Wu"},      {false, "uU", false, ""}, // nothing held: no call
        {false, "LU", false, "LU"},  {true, "u", false, "Wu"},
        {true, "-L", false, "WL"}, // the first hold is forgotten
        {true, "-uU", true, "WuUu"}, // a refused release leaves it held, and is tried at the end
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(row.calls);
        recorder object;
        {
            zel::multi_lock const nothing(std::list<zel::sync_obj *>{&object, nullptr});
            zel::single_lock guard(object, row.now);
            for (char const * step = row.steps; *step != '\0'; ++step) {
                object.answer = object.answer && *step != '-';
                if (*step == 'L') {
                    EXPECT_EQ(guard.lock(5), object.answer);
                } else if (*step != '-') {
                    bool const free = *step == 'u' ? guard.unlock() : guard.unlock(3, nullptr);
                    EXPECT_EQ(free, !guard.is_locked());
                }
            }
            EXPECT_EQ(guard.is_locked(), row.locked);
        }
        EXPECT_EQ(object.calls, row.calls);
    }
}

TEST(single_lock, lets_through_what_the_object_raises_but_at_the_end)
{
    recorder object;
    zel::single_lock guard(object);
    object.raises = true;
    EXPECT_THROW(guard.lock(5), std::runtime_error);
    EXPECT_THROW(zel::single_lock second(object), std::runtime_error);
    EXPECT_TRUE(guard.is_locked());
}

} // namespace
