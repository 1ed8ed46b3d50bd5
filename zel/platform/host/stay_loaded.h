// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Keeps the module that holds this code loaded until the process ends, whoever unloads it. Called
/// before the host is given something of the module that it calls later: a handler of a signal, a
/// destructor of a key. The shared library is linked so from the beginning; this is for a plug-in
/// that the static one is a part of, as long as such a plug-in can be found by its name.
void stay_loaded() noexcept;

} // namespace zel::platform
