// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

// The interface of the notebook's plug-ins. A plug-in is a module named notebook_FORMAT.so beside
// the program, which exports the function below. Only C types are passed, so that it may be
// compiled with another compiler; no exception may leave it.

extern "C" {

/// Receives a part of the result.
using notebook_output = void (*)(void * context, char const * bytes, std::uint32_t count);

struct notebook_plug_in {
    std::uint32_t version; ///< `notebook_plug_in_version`
    char const * extension; ///< of the files it makes, with the dot
    /// Turns a page into the format.
    /// \returns 0, or 1 when it cannot.
    int (*convert)(char const * title, char const * text, std::uint32_t size,
                   notebook_output output, void * context);
};

/// \returns an object that exists as long as the module is loaded.
using notebook_plug_in_function = notebook_plug_in const * (*)();

} // extern "C"

constexpr std::uint32_t notebook_plug_in_version = 1;
constexpr char const * notebook_plug_in_name = "notebook_get_plug_in";
