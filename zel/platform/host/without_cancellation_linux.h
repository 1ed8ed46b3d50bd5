// SPDX-License-Identifier: MIT
#pragma once

#include <pthread.h>

namespace zel::platform {

/// While an object of this class exists, a request to cancel the calling thread (pthread_cancel(3))
/// stays pending. Calls of the host that are cancellation points, such as open, close and every
/// sleep, are made in its scope: otherwise the host would unwind the thread through functions of
/// this layer that are `noexcept`, which ends the process. The next cancellation point outside the
/// scope ends the thread.
class without_cancellation {
public:
    without_cancellation() noexcept { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~without_cancellation()
    {
        int ignored = 0;
        ::pthread_setcancelstate(before_, &ignored);
    }
    without_cancellation(without_cancellation const &) = delete;
    without_cancellation & operator=(without_cancellation const &) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

} // namespace zel::platform
