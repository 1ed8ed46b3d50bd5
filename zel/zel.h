// SPDX-License-Identifier: MIT
#pragma once

// Everything public, subsystem by subsystem.

#include "zel/base/api.h"
#include "zel/version.h"

#if __cplusplus >= 202002L // else the one error is enough
#include "zel/core/api.h"
#include "zel/core/auto_buffer.h"
#include "zel/core/auto_ptr.h"
#include "zel/core/exception.h"
#include "zel/core/object.h"
#include "zel/core/ref_obj.h"
#include "zel/core/require_from_new.h"
#include "zel/core/uncaught.h"

#include "zel/text/buffer.h"
#include "zel/text/convert.h"
#include "zel/text/crc32.h"
#include "zel/text/string.h"

#include "zel/naming/name_generator.h"

#include "zel/log/logger.h"

#include "zel/threads/crit_sect.h"
#include "zel/threads/event.h"
#include "zel/threads/kernel_obj.h"
#include "zel/threads/lockable.h"
#include "zel/threads/multi_lock.h"
#include "zel/threads/mutex.h"
#include "zel/threads/process.h"
#include "zel/threads/semaphore.h"
#include "zel/threads/single_lock.h"
#include "zel/threads/sync_obj.h"
#include "zel/threads/thread_obj.h"
#include "zel/threads/thread_obj_ex.h"

#include "zel/values/color_ref.h"
#include "zel/values/point.h"
#include "zel/values/rect.h"
#include "zel/values/size.h"
#include "zel/values/time.h"
#include "zel/values/timer.h"
#include "zel/values/uid.h"
#include "zel/values/variant.h"

#include "zel/files/dyn_lib.h"
#include "zel/files/file.h"
#include "zel/files/file_obj.h"
#include "zel/files/native_path.h"
#include "zel/files/path.h"

#include "zel/profile/cached_profile.h"
#include "zel/profile/ini_file.h"
#include "zel/profile/iprofile.h"
#include "zel/profile/sub_profile.h"

#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/message_queue.h"
#include "zel/platform/rectangles.h"

#endif
