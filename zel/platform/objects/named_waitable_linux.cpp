// SPDX-License-Identifier: MIT
#include "zel/platform/objects/named_waitable_linux.h"

#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/objects/robust_mutex_linux.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"
#include <algorithm>

// The state of an object:
//
//     bits 0 to 30   the units that are free: of a semaphore up to its maximum, of an event 1 when
//                    it is set
//     bit 31         `queued`: somebody may wait, and then no unit is free
//     bits 32 to 63  the last ticket: how many have ever joined those that wait
//
// With `queued` a unit is not put down but granted to the waiter with the lowest ticket. It stays
// until somebody has found no waiter; that the ticket has not moved since proves that nobody has
// joined in between.
//
// Who waits has a place:
//
//     owner   the waiter's thread, robust: a thread that ends leaves `owner_died`
//     grant   idle -> waiting -> granted or kept -> idle, with the ticket in the high half; the
//             values have no bit where a thread's number would be
//
// The waiter makes its place `waiting` with the next ticket before it moves the state, so that
// whoever sees the new state sees the place. It may then be granted a unit even before it has
// moved the state; that is as good as afterwards. If it finds a free unit meanwhile, it withdraws,
// and passes on what it was granted.
//
// Deaths: of a waiter before the grant - nobody grants to a place whose owner has ended, and a
// granter looks again after the grant; of a waiter after the grant - it has got its unit; of a
// granter between the grant and the wake - the place is announced on its robust list, and the
// kernel wakes the waiter.
namespace zel::platform {
namespace {

constexpr std::uint32_t queued = 0x80000000;
constexpr std::uint64_t one_ticket = std::uint64_t{1} << 32;

enum grant : std::uint32_t {
    waiting = 0,
    idle = 0x40000000,
    granted = 0x80000000, // passed on by a waiter that is stopped
    kept = 0xC0000000, // not passed on: by a pulse, or by an event that stays set
};

constexpr std::uint64_t joined(std::uint32_t ticket, std::uint32_t word) noexcept
{
    return std::uint64_t{ticket} << 32 | word;
}

std::uint32_t ticket_of(std::uint64_t state_or_grant)
{
    return static_cast<std::uint32_t>(state_or_grant >> 32);
}

// Tickets wrap.
bool comes_before(std::uint32_t one, std::uint32_t other)
{
    return static_cast<std::int32_t>(one - other) < 0;
}

atomic<std::uint32_t> const & word_in(atomic<std::uint64_t> const & whole)
{
    void const * const address = &whole; // the low half comes first
    return *static_cast<atomic<std::uint32_t> const *>(address);
}

std::uint32_t used_places(named_waitable const & object)
{
    return std::min<std::uint32_t>(object.used.load(std::memory_order_acquire), most_named_waiters);
}

bool is_owned(named_waiter const & place)
{
    return (place.owner.load(std::memory_order_acquire) & thread_mask) != 0;
}

/// The waiter with the lowest ticket up to `last`; null when there is none.
named_waiter * find_first(named_waitable & object, std::uint32_t last, std::uint32_t & ticket)
{
    named_waiter * first = nullptr;
    for (std::uint32_t i = 0; i < used_places(object); ++i) {
        named_waiter & place = object.waiters[i];
        std::uint64_t const now = place.grant.load(std::memory_order_acquire);
        if (word_of(now) == waiting && is_owned(place) && !comes_before(last, ticket_of(now))
            && (first == nullptr || comes_before(ticket_of(now), ticket))) {
            first = &place;
            ticket = ticket_of(now);
        }
    }
    return first;
}

/// \returns false when the waiter has left or died before.
bool grant_to(robust_list & list, named_waiter & place, std::uint32_t ticket, grant how)
{
    std::uint64_t expected = joined(ticket, waiting);
    list.announce_word(&place.grant);
    bool const done = place.grant.compare_exchange_strong(expected, joined(ticket, how));
    if (done) {
        wake_address(word_in(place.grant), 1, true);
    }
    list.withdraw();
    if (!done) {
        return false;
    }
    expected = joined(ticket, how);
    return (place.owner.load() & owner_died) == 0
        || !place.grant.compare_exchange_strong(expected, joined(ticket, idle));
}

/// Grants `count` units to those that wait and puts down the rest, up to the maximum.
void distribute(named_waitable & object, robust_list & list, std::uint32_t count)
{
    std::uint32_t const maximum = object.maximum.load(std::memory_order_relaxed);
    while (count > 0) {
        std::uint64_t state = object.state.load();
        std::uint32_t ticket = 0;
        named_waiter * const first = (word_of(state) & queued) != 0
            ? find_first(object, ticket_of(state) + 0x40000000, ticket)
            : nullptr;
        if (first != nullptr) {
            count -= grant_to(list, *first, ticket, granted) ? 1 : 0;
            continue;
        }
        std::uint32_t const free = word_of(state) & ~queued;
        std::uint32_t const after = free + std::min(count, maximum - std::min(free, maximum));
        if (object.state.compare_exchange_weak(state, with_word(state, after))) {
            return;
        }
    }
}

/// Grants to everybody that has joined up to `last`.
void grant_to_all(named_waitable & object, robust_list & list, std::uint32_t last)
{
    std::uint32_t ticket = 0;
    while (named_waiter * const first = find_first(object, last, ticket)) {
        grant_to(list, *first, ticket, kept);
    }
}

/// The calling thread's place while it waits, from its first need on.
class own_place {
public:
    own_place(named_waitable & object, robust_list & list) noexcept
        : object_(object)
        , list_(list)
    {
    }
    ~own_place()
    {
        if (place_ != nullptr) {
            place_->grant.store(joined(0, idle));
            list_.announce(place_->node);
            list_.remove(place_->node);
            place_->owner.store(0, std::memory_order_release);
            list_.withdraw();
        }
    }
    own_place(own_place const &) = delete;
    own_place & operator=(own_place const &) = delete;

    /// \returns false with last error 1450 when all are taken.
    bool claim() noexcept
    {
        for (bool const last_try : {false, true}) {
            for (std::uint32_t i = 0; place_ == nullptr && i < used_places(object_); ++i) {
                claim(object_.waiters[i], last_try);
            }
            while (place_ == nullptr && used_places(object_) < most_named_waiters) {
                std::uint32_t const next = object_.used.fetch_add(1);
                if (next < most_named_waiters) {
                    claim(object_.waiters[next], last_try);
                }
            }
            if (place_ != nullptr) {
                return true;
            }
        }
        set_last_error(error_no_system_resources);
        return false;
    }

    atomic<std::uint64_t> & grant_word() noexcept { return place_->grant; }

private:
    // First nobody grants to the place any more, then it changes hands. One whose owner has died
    // after a grant is left alone while there are others: the granter may be about to find out.
    void claim(named_waiter & place, bool last_try) noexcept
    {
        std::uint32_t owner = place.owner.load(std::memory_order_acquire);
        if ((owner & thread_mask) != 0) {
            return;
        }
        std::uint64_t now = place.grant.load(std::memory_order_acquire);
        std::uint32_t const word = word_of(now);
        if (word == granted && !last_try) {
            return;
        }
        if (word != idle && !place.grant.compare_exchange_strong(now, with_word(now, idle))) {
            return;
        }
        list_.announce(place.node);
        if (place.owner.compare_exchange_strong(owner, current_thread_id())) {
            list_.add(place.node);
            place_ = &place;
        }
        list_.withdraw();
    }

    named_waitable & object_;
    robust_list & list_;
    named_waiter * place_ = nullptr;
};

enum class outcome { given, late, stopped, refused };

/// Waits once, from joining those that wait to leaving them.
outcome wait_once(named_waitable & object, robust_list & list, std::int64_t until)
{
    bool const manual = object.manual.load(std::memory_order_relaxed) != 0;
    own_place place(object, list);
    bool claimed = false;
    std::uint32_t ticket = 0;
    for (;;) {
        std::uint64_t state = object.state.load();
        std::uint32_t const word = word_of(state);
        if (word != 0 && word != queued) {
            if (manual || object.state.compare_exchange_weak(state, state - 1)) {
                return outcome::given;
            }
            continue;
        }
        if (until == 0) {
            return outcome::late;
        }
        if (!claimed) {
            claimed = place.claim();
            if (!claimed) {
                return outcome::refused;
            }
        }
        ticket = ticket_of(state) + 1;
        place.grant_word().store(joined(ticket, waiting));
        if (object.state.compare_exchange_strong(state, with_word(state + one_ticket, queued))) {
            break;
        }
        std::uint64_t expected = joined(ticket, waiting);
        if (!place.grant_word().compare_exchange_strong(expected, joined(ticket, idle))) {
            break; // granted something already
        }
    }

    wake_reason reason;
    std::uint64_t now;
    do {
        reason = wait_interruptibly(word_in(place.grant_word()), waiting, until, true);
        now = place.grant_word().load();
    } while (word_of(now) == waiting && reason != wake_reason::late && !told_to_stop());

    bool const stopped = told_to_stop();
    // On failure `now` tells what was granted at the last moment.
    if (word_of(now) == waiting
        && place.grant_word().compare_exchange_strong(now, with_word(now, idle))) {
        return reason == wake_reason::late && !stopped ? outcome::late : outcome::stopped;
    }
    if (stopped && word_of(now) == granted
        && place.grant_word().compare_exchange_strong(now, with_word(now, idle))) {
        distribute(object, list, 1);
        return outcome::stopped;
    }
    return outcome::given;
}

} // namespace

void initialize(named_waitable & object, std::uint32_t initial, std::uint32_t maximum,
                bool manual) noexcept
{
    object.maximum.store(maximum, std::memory_order_relaxed);
    object.manual.store(manual ? 1 : 0, std::memory_order_relaxed);
    object.state.store(initial, std::memory_order_release);
}

std::uint32_t wait_for(named_waitable & object, std::int64_t until) noexcept
{
    robust_list * const list = robust_list::own();
    if (list == nullptr) {
        return wait_failed;
    }
    switch (wait_once(object, *list, until)) {
    case outcome::given:
        return wait_object_0;
    case outcome::late:
        return wait_timeout;
    case outcome::stopped:
        return wait_stopped;
    default:
        return wait_failed;
    }
}

bool set(named_waitable & event) noexcept
{
    robust_list * const list = robust_list::own();
    if (list == nullptr) {
        return false;
    }
    if (event.manual.load(std::memory_order_relaxed) == 0) {
        distribute(event, *list, 1);
        return true;
    }
    // Set last: killed before, it leaves nobody asleep beside a set event.
    for (;;) {
        std::uint64_t state = event.state.load();
        if ((word_of(state) & queued) != 0) {
            grant_to_all(event, *list, ticket_of(state));
        }
        if (event.state.compare_exchange_strong(state, with_word(state, 1))) {
            return true;
        }
    }
}

bool reset(named_waitable & event) noexcept
{
    std::uint64_t state = event.state.load();
    while (word_of(state) == 1 && !event.state.compare_exchange_weak(state, with_word(state, 0))) {
    }
    return true;
}

bool pulse(named_waitable & event) noexcept
{
    robust_list * const list = robust_list::own();
    if (list == nullptr) {
        return false;
    }
    reset(event);
    std::uint64_t const state = event.state.load();
    if ((word_of(state) & queued) == 0) {
        return true;
    }
    std::uint32_t const last = ticket_of(state);
    if (event.manual.load(std::memory_order_relaxed) != 0) {
        grant_to_all(event, *list, last);
        return true;
    }
    std::uint32_t ticket = 0;
    while (named_waiter * const first = find_first(event, last, ticket)) {
        if (grant_to(*list, *first, ticket, kept)) {
            break;
        }
    }
    return true;
}

bool release(named_waitable & semaphore, std::uint32_t count, std::int32_t * previous) noexcept
{
    robust_list * const list = robust_list::own();
    if (list == nullptr) {
        return false;
    }
    std::uint32_t const maximum = semaphore.maximum.load(std::memory_order_relaxed);
    std::uint64_t state = semaphore.state.load();
    std::uint32_t free;
    do {
        free = word_of(state) & ~queued;
        if (count > maximum - free) {
            set_last_error(error_too_many_posts);
            return false;
        }
        if ((word_of(state) & queued) != 0) {
            distribute(semaphore, *list, count);
            break;
        }
    } while (!semaphore.state.compare_exchange_weak(state, state + count));
    if (previous != nullptr) {
        *previous = static_cast<std::int32_t>(free);
    }
    return true;
}

} // namespace zel::platform
