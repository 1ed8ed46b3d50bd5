// SPDX-License-Identifier: MIT
#include "zel/core/object.h"

#include "tests/support/raised.h"
#include "tests/support/threads_at_once.h"
#include "zel/core/auto_buffer.h"
#include "zel/core/auto_ptr.h"
#include "zel/core/exception.h"
#include "zel/core/ref_obj.h"
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

namespace {

using zel::auto_ptr;

struct counted : zel::ref_obj {
    explicit counted(std::atomic<int> & deaths, auto_ptr<counted> successor = nullptr)
        : next(std::move(successor))
        , count(deaths)
    {
    }
    ~counted() override { ++count; }

    auto_ptr<counted> next;
    std::atomic<int> & count;
};
struct derived : counted {
    using counted::counted;
};
// Two counts; the object itself goes by the one of `side`.
struct side : zel::ref_obj { };
struct twofold : side, counted {
    using counted::counted;
    std::uint32_t inc_ref() noexcept { return side::inc_ref(); }
    std::uint32_t dec_ref() noexcept { return side::dec_ref(); }
    void undo_inc_ref() noexcept { side::undo_inc_ref(); }
};

static_assert(!std::is_convertible_v<auto_ptr<counted>, auto_ptr<derived>>);
static_assert(!std::is_convertible_v<auto_ptr<counted>, bool>);

TEST(ref_obj, counts_and_deletes_at_the_last_release)
{
    std::atomic<int> deaths = 0;
    auto * const object = new counted(deaths);
    EXPECT_TRUE(object->inc_ref() == 1 && object->inc_ref() == 2 && object->dec_ref() == 1);
    EXPECT_TRUE(deaths == 0 && object->dec_ref() == 0 && deaths == 1);
    auto const fresh = std::make_unique<counted>(deaths);
    EXPECT_TRUE(fresh->ref_count() == 0 && fresh->dec_ref() == 0xFFFFFFFF); // deletes nothing
    EXPECT_TRUE(fresh->ref_count() == 0xFFFFFFFF && deaths == 1);
}

TEST(auto_ptr, shares_the_object_and_lets_go_of_it)
{
    std::atomic<int> deaths = 0;
    auto * const object = new counted(deaths);
    {
        auto_ptr<counted> p(object);
        auto_ptr<counted> q = p;
        auto & same = p;
        p = same;
        p = q; // two that hold one object
        p = std::move(same);
        auto_ptr<counted> moved = std::move(q);
        EXPECT_TRUE(q == nullptr && moved == p && moved.get() == object && &*p == p.operator->());
        moved = nullptr;
        EXPECT_EQ(object->ref_count(), 1U);
        EXPECT_TRUE((std::unordered_set<auto_ptr<counted>>{p}).contains(p) && deaths == 0);
    }
    EXPECT_EQ(deaths, 1);
}

TEST(auto_ptr, takes_every_null_of_the_language_and_raises_where_one_is_followed)
{
    static constinit auto_ptr<counted> nothing = nullptr;
    auto const is_null
        = [](auto_ptr<counted> const & p) { return !p && p == NULL && nullptr == p; };
    auto_ptr<counted> zero(0), null(NULL);
    EXPECT_TRUE(is_null(nothing) && is_null(zero) && is_null(null) && is_null(NULL) && is_null(0));
    std::atomic<int> deaths = 0;
    auto_ptr<counted> held = new counted(deaths);
    held = NULL;
    EXPECT_EQ(deaths, 1);
    held = new counted(deaths);
    held = 0;
    EXPECT_EQ(deaths, 2);
    EXPECT_EQ(message_raised<zel::memory_exception>([&] { (void)null->next; }),
              "Zel Memory Exception: Null Pointer auto_ptr::operator->");
    EXPECT_EQ(message_raised<zel::memory_exception>([&] { (void)(*zero).next; }),
              "Zel Memory Exception: Null Pointer auto_ptr::operator*");
}

TEST(auto_ptr, reads_a_source_that_dies_with_the_old_object)
{
    std::atomic<int> deaths = 0;
    auto_ptr<counted> node;
    for (int i = 0; i < 4; ++i) {
        node = new counted(deaths, node);
    }
    node = node->next;
    EXPECT_EQ(deaths, 1);
    node = std::move(node->next);
    EXPECT_TRUE(deaths == 2 && node->ref_count() == 1);
    node = node->next->next; // null
    EXPECT_EQ(deaths, 4);
}

TEST(auto_ptr, converts_to_a_base)
{
    std::atomic<int> deaths = 0;
    auto_ptr<derived> d(new derived(deaths));
    auto_ptr<counted> base = d;
    auto_ptr<zel::ref_obj> root = std::move(d);
    EXPECT_TRUE(d == nullptr && root == base && base->ref_count() == 2);
    auto_ptr<counted const> constant = base; // the count is no part of what is constant
    base = nullptr;
    root = nullptr;
    EXPECT_EQ(constant->ref_count(), 1U);
}

TEST(auto_ptr, moves_from_one_count_of_an_object_to_another)
{
    std::atomic<int> deaths = 0;
    auto * const object = new twofold(deaths);
    auto_ptr<twofold> source(object);
    auto_ptr<counted> target(std::move(source));
    EXPECT_TRUE(source == nullptr && deaths == 0);
    EXPECT_TRUE(object->side::ref_count() == 0 && object->counted::ref_count() == 1);
    source = object;
    target = std::move(source);
    EXPECT_TRUE(object->side::ref_count() == 0 && object->counted::ref_count() == 1);
    target = nullptr;
    EXPECT_EQ(deaths, 1);
}

TEST(auto_ptr, is_deleted_by_exactly_one_of_many_threads)
{
    std::atomic<int> deaths = 0;
    for (int round = 0; round < 300; ++round) {
        std::vector<auto_ptr<counted>> of_each(8, new counted(deaths));
        run_at_once(8, [&](int thread) {
            auto_ptr<counted> & mine = of_each[static_cast<std::size_t>(thread)];
            for (int i = 0; i < 100; ++i) {
                auto_ptr<counted> const copy = mine;
            }
            mine = nullptr;
        });
        EXPECT_EQ(deaths, round + 1);
    }
}

#ifndef NDEBUG
TEST(auto_ptr, ends_a_debug_build_that_puts_in_what_is_not_from_new)
{
    static side of_the_module;
    side local;
    side * volatile object = &local; // a compiler that knows the address warns of the deletion
    EXPECT_DEATH(auto_ptr<side>{object}, "must come from new; .* is a local object");
    object = &of_the_module;
    EXPECT_DEATH(auto_ptr<side>{object}, "is a static object");
}
#endif

TEST(auto_buffer, moves_its_array_on_assignment)
{
    zel::auto_buffer<char> a(3), b(0);
    char * const array = a.get();
    auto & same = a;
    a = same;
    EXPECT_TRUE(a.get() == array && b.get() != nullptr);
    b = a;
    EXPECT_TRUE(a.get() == nullptr && b.get() == array && &b[1] == array + 1);
    b = zel::auto_buffer<char>(5);
    EXPECT_NE(b.get(), nullptr);
}

} // namespace
