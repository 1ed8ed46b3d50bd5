# SPDX-License-Identifier: MIT
# Read by ctest in a build for another processor: the tests that QEMU's user emulation cannot follow.
set(CTEST_CUSTOM_TESTS_IGNORE
    # QEMU answers get_robust_list with ENOSYS, so nobody can own a mutex, and names cannot be shared:
    allocations.fail_one_after_the_other_in_every_operation
    sync_objects.raise_where_nothing_is_made_opened_or_held
    event.lets_one_through_or_everyone
    mutex.belongs_to_a_thread_and_tells_once_that_it_has_died
    semaphore.counts_its_units
    unnamed_mutex.shares_the_hosts_list_with_the_c_librarys_locks
    named_objects.are_one_object_in_all_processes
    named_objects.last_as_long_as_anybody_holds_them
    named_objects.take_any_name_and_refuse_what_is_none
    named_objects.refuse_what_the_handle_has_no_right_to
    named_objects.are_given_back_by_exec
    named_objects.do_not_trust_what_somebody_else_put_there
    named_objects.survive_the_death_of_their_users
    named_mutex.stays_owned_when_its_handle_is_closed
    named_mutex.belongs_to_the_thread_and_not_to_the_child_of_a_fork
    terminated_threads.leave_the_waiters_and_abandon_what_they_own
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
