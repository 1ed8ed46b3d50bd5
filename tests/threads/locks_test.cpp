// SPDX-License-Identifier: MIT
#include "zel/threads/crit_sect.h"
#include "zel/threads/event.h"
#include "zel/threads/multi_lock.h"
#include "zel/threads/semaphore.h"
#include "zel/threads/single_lock.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace {

// Answers as told and keeps the calls: L5 a lock of 5 ms, u an unlock, U3 one with a count of 3.
class recorder : public zel::sync_obj {
public:
    std::string calls;
    bool locks = true;
    bool unlocks = true;
    bool raises = false;

    bool lock(std::uint32_t timeout) override { return answer('L', &timeout, locks); }
    bool unlock(std::uint32_t count, std::uint32_t *) override
    {
        return answer('U', &count, unlocks);
    }
    bool unlock() override { return answer('u', nullptr, unlocks); }

private:
    bool answer(char call, std::uint32_t const * number, bool result)
    {
        calls += call;
        if (number != nullptr) {
            calls += std::to_string(*number);
        }
        if (raises) {
            throw std::runtime_error("told to");
        }
        return result;
    }
};

TEST(single_lock, takes_at_once_and_gives_back_once)
{
    recorder object;
    {
        zel::single_lock guard(object);
        EXPECT_TRUE(guard.is_locked());
    }
    EXPECT_EQ(object.calls, "L4294967295u");

    object.calls.clear();
    {
        zel::single_lock guard(object, false);
        EXPECT_FALSE(guard.is_locked());
        EXPECT_TRUE(guard.unlock() && guard.unlock(3, nullptr)); // nothing held: no call
        EXPECT_TRUE(guard.lock(5));
        EXPECT_TRUE(guard.unlock(3, nullptr));
        EXPECT_FALSE(guard.is_locked());
    }
    EXPECT_EQ(object.calls, "L5U3");
}

TEST(single_lock, remembers_the_last_answer)
{
    recorder object;
    {
        zel::single_lock guard(object, true);
        object.locks = false;
        EXPECT_FALSE(guard.lock(0));
        EXPECT_FALSE(guard.is_locked()); // the first hold is forgotten
    }
    EXPECT_EQ(object.calls, "L4294967295L0");

    object = recorder();
    {
        zel::single_lock guard(object);
        object.unlocks = false;
        EXPECT_FALSE(guard.unlock());
        EXPECT_FALSE(guard.unlock(2, nullptr));
        EXPECT_TRUE(guard.is_locked()); // and tried once more at the end
    }
    EXPECT_EQ(object.calls, "L4294967295uU2u");
}

TEST(single_lock, lets_through_what_the_object_raises_but_at_the_end)
{
    recorder object;
    object.raises = true;
    EXPECT_THROW(zel::single_lock guard(object), std::runtime_error);
    EXPECT_EQ(object.calls, "L4294967295"); // there was no guard to give it back
    object = recorder();
    {
        zel::single_lock guard(object);
        object.raises = true;
        EXPECT_THROW(guard.lock(0), std::runtime_error);
        EXPECT_TRUE(guard.is_locked());
    }
    EXPECT_EQ(object.calls, "L4294967295L0u");
}

TEST(single_lock, guards_each_kind_of_object)
{
    zel::semaphore units(2, 2);
    {
        zel::single_lock guard(units, true);
        EXPECT_TRUE(units.lock(0));
        std::uint32_t untouched = 77;
        EXPECT_TRUE(guard.unlock(2, &untouched)); // one unit
        EXPECT_EQ(untouched, 77U);
    }
    EXPECT_TRUE(units.lock(0));
    EXPECT_FALSE(units.lock(0));

    zel::event event(true, true);
    zel::single_lock guard(event, true);
    EXPECT_TRUE(guard.unlock());
    EXPECT_FALSE(guard.is_locked());
    EXPECT_TRUE(event.lock(0)); // as it was
}

TEST(multi_lock, leaves_its_objects_alone)
{
    recorder object;
    {
        zel::multi_lock const some(std::list<zel::sync_obj *>{&object, nullptr});
        zel::multi_lock copy(some);
        copy = some;
    }
    EXPECT_EQ(object.calls, "");
}

} // namespace
