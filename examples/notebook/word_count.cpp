// SPDX-License-Identifier: MIT
#include "word_count.h"

#include "page.h"
#include "window_messages.h"
#include <cstring>

namespace notebook {

word_count::word_count(zel::auto_ptr<zel::logger> log, zel::path const & folder,
                       window_handle window)
    : thread_obj_ex(log, "word count")
    , folder_(folder)
    , window_(window)
{
}

unsigned int word_count::run()
{
    try {
        auto const pages = pages_of(folder_);
        for (zel::path const & page : pages) {
            all_bytes_ += page.file_size();
        }
        for (zel::path const & page : pages) {
            count(page);
            ++pages_;
        }
        return 0;
    } catch (zel::exception & error) {
        failure_ = error.get_message();
        throw; // it is reported to the logger
    }
}

void word_count::count(zel::path const & page)
{
    zel::file in(page, zel::file::mode_read, zel::file::kind_binary);
    zel::buffer block(64 * 1024, 0);
    bool in_word = false;
    while (std::uint32_t const size = in.read(block.data(), block.size())) {
        for (std::uint32_t i = 0; i < size; ++i) {
            bool const blank = std::strchr(" \t\r\n", block[i]) != nullptr;
            words_ += !blank && !in_word ? 1 : 0;
            in_word = !blank;
        }
        tell(size);
    }
}

void word_count::tell(std::uint64_t bytes)
{
    // A page may have grown meanwhile.
    bytes_ += bytes;
    auto const percent
        = static_cast<std::uint32_t>(bytes_ < all_bytes_ ? bytes_ * 100 / all_bytes_ : 100);
    if (percent != percent_) {
        percent_ = percent;
        zel::platform::post_message(window_, message_progress, percent, 0);
    }
}

} // namespace notebook
