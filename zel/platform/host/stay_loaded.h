// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Keeps the module that contains this code loaded until the process ends, even if the program
/// unloads it. Call it before the host is given an address in the module to call later, such as a
/// signal handler or the destructor of a key. The shared library is linked with that property; this
/// function is for the static library inside a plug-in. It works as long as the plug-in can be
/// found by its name.
void stay_loaded() noexcept;

} // namespace zel::platform
