// SPDX-License-Identifier: MIT
#include "instance.h"

namespace notebook {

namespace platform = zel::platform;

namespace {

// Names of objects have at most 260 bytes, and file names may be as long as that.
zel::string object_name(zel::string const & name, char const * what)
{
    return (name + " " + what).truncate_hash(250);
}

} // namespace

instance::instance(zel::string const & name)
    : running_(false, object_name(name, "running"))
    , called_(false, false, object_name(name, "called").c_str())
    , answered_(false, false, object_name(name, "answered").c_str())
{
}

instance::~instance()
{
    if (entered_) {
        running_.unlock();
    }
}

instance::outcome instance::enter(std::uint32_t patience)
{
    // `lock` would return false both for a timeout and for an owner that has died.
    switch (platform::wait_for_single_object(running_.get_handle(), patience)) {
    case platform::wait_object_0:
        entered_ = true;
        return first;
    case platform::wait_abandoned:
        entered_ = true;
        return first_after_crash;
    case platform::wait_timeout:
        return another_runs;
    default:
        throw zel::exception("cannot wait for the other notebook: " + zel::get_last_error());
    }
}

bool instance::call()
{
    answered_.reset(); // discards an answer to an earlier call
    called_.set();
    bool const answered = answered_.lock(1000);
    if (!answered) {
        called_.reset(); // or the notebook after this one would take the call for its own
    }
    return answered;
}

call_listener::call_listener(zel::auto_ptr<zel::logger> log, zel::event & called,
                             window_handle window)
    : thread_obj(log, "call listener")
    , called_(called)
    , window_(window)
{
}

void call_listener::end()
{
    over_ = true;
    called_.set();
    wait();
}

unsigned int call_listener::run()
{
    while (called_.lock(platform::infinite) && !over_) {
        platform::post_message(window_, message_call, 0, 0);
    }
    return 0;
}

} // namespace notebook
