# SPDX-License-Identifier: MIT
# Read by ctest in a build for another processor: the tests that QEMU's user emulation cannot follow.
set(CTEST_CUSTOM_TESTS_IGNORE
    # QEMU answers get_robust_list with ENOSYS, so nobody can own a mutex, and names cannot be shared:
    allocations.fail_one_after_the_other_in_every_operation
    sync_objects.raise_where_nothing_is_made_opened_or_held
    event.lets_one_through_or_everyone
    mutex.belongs_to_a_thread_and_tells_once_that_it_has_died
    semaphore.counts_its_units
    of/mutexes.share_the_hosts_list_with_the_c_librarys_locks/unnamed
    of/mutexes.share_the_hosts_list_with_the_c_librarys_locks/named
    of/mutexes.belong_to_one_thread_as_often_as_it_takes_them/named
    of/mutexes.tell_one_waiter_that_their_owner_ended/named
    of/mutexes.stay_owned_when_their_owner_closes_its_handle/named
    of/mutexes.are_abandoned_by_a_terminated_thread_which_waits_for_nothing_any_more/named
    of/waitables.let_through_whom_they_should/named
    of/waitables.count_and_refuse_what_passes_the_maximum/named
    of/waitables.lose_and_make_no_unit_nor_a_wake_up/named
    named_objects.are_one_object_in_all_processes
    named_objects.last_as_long_as_anybody_holds_them
    named_objects.take_any_name_and_refuse_what_is_none
    named_objects.refuse_what_the_handle_has_no_right_to
    named_objects.do_not_trust_what_somebody_else_put_there
    named_objects.of_the_dead_are_taken_away_by_whoever_meets_one
    threads.work_in_a_forked_child
    thread_stops.hold_a_thread_wherever_it_is_and_end_it_there
    over/suspended_waiters.leave_no_other_asleep_beside_a_free_object/named_event
    over/suspended_waiters.leave_no_other_asleep_beside_a_free_object/named_semaphore
    over/suspended_waiters.leave_no_other_asleep_beside_a_free_object/named_mutex
    stretched.stress
    mutex_rounds.programs
    mutex_rounds.processes
    mutex_rounds.deaths
    mutex_rounds.hand-overs
    mutex_rounds.namespaces
    mutex_rounds.exec
    mutex_rounds.many
    mutex_rounds.fairness
    mutex_rounds.stopped
    mutex_rounds.cancelled
    examples.shared_counter
    # MADV_WIPEONFORK does nothing, so a child repeats its parent's random bytes:
    uid.never_repeats_in_eight_threads_of_two_processes
    # Not within their time limits, or a limit of the process that the emulator shares:
    thread_stops.meet_a_start_and_an_end
    thread_stops.meet_an_end_and_the_closing_of_the_handle
    thread_obj.a_failed_start_takes_nothing
    examples.tour # starts the programs itself; each has a test of its own
)
