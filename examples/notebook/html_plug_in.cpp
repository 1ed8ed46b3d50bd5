// SPDX-License-Identifier: MIT
// The plug-in for HTML: each run of lines that are not empty is a paragraph.
#include "plug_in.h"
#include <zel/zel.h>

namespace {

void put(notebook_output output, void * context, zel::string const & text)
{
    output(context, text.data(), static_cast<std::uint32_t>(text.size()));
}

int convert(char const * title, char const * text, std::uint32_t size, notebook_output output,
            void * context)
try {
    zel::string const name = zel::string(title).normalize_for_xml();
    put(output, context,
        "<!DOCTYPE html>\n<meta charset=\"utf-8\">\n<title>" + name + "</title>\n<h1>" + name
            + "</h1>\n");
    zel::string paragraph;
    auto const end_paragraph = [&] {
        if (!paragraph.empty()) {
            put(output, context, "<p>" + paragraph + "</p>\n");
        }
        paragraph.clear();
    };
    for (zel::string line : zel::string(text, size).split("\n")) {
        line.trim_right();
        if (line.empty()) {
            end_paragraph();
        } else {
            paragraph += (paragraph.empty() ? "" : "\n") + line.normalize_for_xml();
        }
    }
    end_paragraph();
    return 0;
} catch (...) {
    return 1;
}

constexpr notebook_plug_in plug_in{notebook_plug_in_version, ".html", convert};

} // namespace

extern "C" [[gnu::visibility("default")]] notebook_plug_in const * notebook_get_plug_in();
notebook_plug_in const * notebook_get_plug_in() { return &plug_in; }
