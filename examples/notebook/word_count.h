// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <zel/zel.h>

namespace notebook {

/// Counts the words of all pages in a folder on a thread of its own, and reports its progress to a
/// window. The owner waits with `wait_msg_loop`, so that the window keeps working.
class word_count : public zel::thread_obj_ex {
public:
    word_count(zel::auto_ptr<zel::logger> log, zel::path const & folder, window_handle window);

    /// The result; valid after the thread's end.
    std::uint64_t words() const { return words_; }
    std::uint32_t pages() const { return pages_; }
    /// The reason why it has ended early; empty when it has not.
    zel::string const & failure() const { return failure_; }

protected:
    unsigned int run() override;

private:
    void count(zel::path const & page);
    void tell(std::uint64_t bytes);

    zel::path const folder_;
    window_handle window_;
    std::uint64_t all_bytes_ = 0;
    std::uint64_t bytes_ = 0; // how many are done
    std::uint32_t percent_ = 0; // reported to the window
    std::uint64_t words_ = 0;
    std::uint32_t pages_ = 0;
    zel::string failure_;
};

} // namespace notebook
