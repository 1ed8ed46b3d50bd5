// SPDX-License-Identifier: MIT
// Describes the classes of the library to a debugger, for its printers.
//
// A compiler describes a class with virtual members in one place, beside its table of virtual
// members, which is in the library. A release has no descriptions, and all that a program's
// debugger would show of such an object is that its type is incomplete. This file is compiled with
// descriptions whatever the kind of build. It adds no code.

#include "zel/zel.h"

namespace zel {
namespace {

struct described {
    buffer * a_buffer;
    path * a_path;
    time * a_time;
    timer * a_timer;
    exception * an_exception;
    memory_exception * of_memory;
    convert::exception * of_convert;
    dyn_lib::exception * of_dyn_lib;
    file::exception * of_file;
    kernel_obj::exception * of_kernel_obj;
    sync_obj::exception * of_sync_obj;
    variant::exception * of_variant;
    logger * a_logger;
    event * an_event;
    mutex * a_mutex;
    semaphore * a_semaphore;
    crit_sect * a_crit_sect;
    thread_obj * a_thread;
    thread_obj_ex * a_pumping_thread;
    ini_file * an_ini_file;
    cached_profile * a_cache;
    sub_profile * a_prefix;
    file * a_file;
    dyn_lib * a_module;
};

[[gnu::used]] constinit described const keeps_the_descriptions{};

} // namespace
} // namespace zel
