// SPDX-License-Identifier: MIT
#include "zel/platform/objects/named_file_linux.h"

#include "zel/platform/host/failure.h"
#include <cerrno>
#include <charconv>
#include <iterator>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace zel::platform {
namespace {

constexpr std::uint32_t magic = 0x326C657A; // "zel2"; change it with any change of the layout
constexpr std::size_t header_size = 512; // of the file in front of the block
constexpr std::size_t least_entries = 64;
constexpr std::size_t page = 4096;

std::size_t file_size(std::size_t block_size)
{
    std::size_t const least = header_size + block_size + least_entries * sizeof(std::uint64_t);
    return (least + page - 1) / page * page;
}

} // namespace

struct named_file::header {
    std::uint32_t magic;
    std::uint32_t kind;
    std::uint64_t size; // of the block
    std::uint64_t device; // device and inode number of the file itself
    std::uint64_t number;
    atomic<std::uint64_t> gate;
    std::uint32_t name_size;
    char name[longest_name];
};

file_name::file_name(std::string_view block_name) noexcept
{
    std::uint64_t first = 0x9E3779B97F4A7C15;
    std::uint64_t second = 0xC2B2AE3D27D4EB4F ^ block_name.size();
    for (char const c : block_name) {
        auto const byte = static_cast<unsigned char>(c);
        first = (first ^ byte) * 0x100000001B3; // FNV-1a
        second = (second + byte + 1) * 0xD6E8FEB86659FD93;
        second ^= second >> 32;
    }
    std::uint64_t const parts[2] = {first ^ (first >> 29), second};
    *this = file_name(parts);
}

file_name::file_name(std::uint64_t const (&parts)[2]) noexcept
    : number{parts[0], parts[1]}
{
    char * end = text;
    for (std::uint64_t const part : parts) {
        for (int shift = 60; shift >= 0; shift -= 4) {
            *end++ = "0123456789abcdef"[part >> shift & 15];
        }
    }
    *end = '\0';
}

named_file::named_file(named_memory const & memory) noexcept
    : mapping_(static_cast<char *>(memory.block) - header_size)
    , size_(file_size(memory.size))
{
}

named_file::~named_file()
{
    static_assert(sizeof(header) <= header_size);
    if (mapping_ != nullptr) {
        ::munmap(mapping_, size_);
    }
    if (made_in_ != nullptr) {
        ::unlinkat(made_in_->get(), made_as_, 0);
    }
}

bool named_file::map(int file) noexcept
{
    // All pages exist. To enter them all at once takes less than a fault for each.
    void * const memory
        = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, file, 0);
    if (memory == MAP_FAILED) {
        return fail_in_shared_memory(errno);
    }
    mapping_ = memory;
    return true;
}

user_folder::found named_file::open(user_folder const & folder, char const * name) noexcept
{
    descriptor file;
    struct stat facts;
    user_folder::found const found = folder.open_file(name, file, facts);
    if (found != user_folder::found::file) {
        return found;
    }
    size_ = static_cast<std::size_t>(facts.st_size);
    // Memory beyond the end of the file must not be accessed.
    if (size_ == 0 || size_ % page != 0) {
        set_last_error(error_no_system_resources, "the file in shared memory is not understood");
        return user_folder::found::error;
    }
    return map(file.get()) ? found : user_folder::found::error;
}

bool named_file::make(user_folder const & folder, std::uint64_t mark, std::string_view name,
                      std::uint32_t kind, std::size_t size) noexcept
{
    static constinit atomic<std::uint32_t> count{0};
    char * const end = std::end(made_as_) - 1;
    char * at = made_as_ + std::string_view("new-").copy(made_as_, 4);
    at = std::to_chars(at, end, mark, 16).ptr;
    *at++ = '-';
    *std::to_chars(at, end, count.fetch_add(1, std::memory_order_relaxed), 16).ptr = '\0';
    descriptor file;
    struct stat facts;
    if (!folder.make_file(made_as_, file, facts)) {
        return false;
    }
    made_in_ = &folder;
    size_ = file_size(size);
    // Allocate all of it now: a page that cannot be allocated later would kill the process.
    if (int const error = ::posix_fallocate(file.get(), 0, static_cast<off_t>(size_)); error != 0) {
        return fail_in_shared_memory(error);
    }
    if (!map(file.get())) {
        return false;
    }
    header & it = head();
    it.magic = magic;
    it.kind = kind;
    it.size = size;
    it.device = facts.st_dev;
    it.number = facts.st_ino;
    it.name_size = static_cast<std::uint32_t>(name.size());
    name.copy(it.name, name.size());
    holders().begin(mark);
    return true;
}

bool named_file::publish(user_folder const & folder, char const * name) noexcept
{
    if (::renameat2(folder.get(), made_as_, folder.get(), name, RENAME_NOREPLACE) != 0) {
        return false;
    }
    made_in_ = nullptr;
    return true;
}

void named_file::remove_name(user_folder const & folder, char const * name) const noexcept
{
    struct stat facts { };
    facts.st_dev = head().device;
    facts.st_ino = head().number;
    if (folder.leads_to(name, facts)) {
        ::unlinkat(folder.get(), name, 0);
    }
}

bool named_file::is_understood() const noexcept
{
    header const & it = head();
    return it.magic == magic && it.name_size <= longest_name && it.size < size_
        && file_size(it.size) == size_;
}

std::string_view named_file::name() const noexcept { return {head().name, head().name_size}; }
std::uint32_t named_file::kind() const noexcept { return head().kind; }
std::size_t named_file::block_size() const noexcept { return head().size; }
void * named_file::block() const noexcept { return static_cast<char *>(mapping_) + header_size; }

name_holders named_file::holders() const noexcept
{
    std::size_t const before = header_size + (head().size + 7) / 8 * 8;
    void * const entries = static_cast<char *>(mapping_) + before;
    return {head().gate, static_cast<atomic<std::uint64_t> *>(entries),
            static_cast<std::uint32_t>((size_ - before) / sizeof(std::uint64_t))};
}

named_memory named_file::release(file_name const & path, std::uint32_t entry) noexcept
{
    named_memory const memory{block(), head().size, {path.number[0], path.number[1]}, entry};
    mapping_ = nullptr;
    return memory;
}

} // namespace zel::platform
