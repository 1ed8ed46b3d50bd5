// SPDX-License-Identifier: MIT
#include "settings.h"

#include <algorithm>
#include <string>

namespace notebook {

window_place::window_place(store settings)
    : settings_(std::move(settings))
{
    // A block of another size was written by another version.
    if (settings_->get_binary_size("place", "frame") == sizeof(t_rect)) {
        t_rect frame;
        settings_->read_binary("place", "frame", &frame, sizeof frame);
        frame_ = frame;
    }
}

void window_place::set(zel::rect const & frame)
{
    frame_ = frame;
    t_rect block = frame;
    settings_->write_binary("place", "frame", &block, sizeof block);
}

recent_pages::recent_pages(store settings)
    : settings_(std::move(settings))
{
    settings_->read_multiple("pages", "order", ',', "page", pages_);
}

void recent_pages::add(zel::path const & page, std::int32_t sum)
{
    // A page that is in the list keeps its number; a new one takes the oldest's, or a free one.
    auto const has = [&](std::int32_t number) {
        return std::any_of(pages_.begin(), pages_.end(),
                           [&](auto const & entry) { return entry.first == number; });
    };
    auto const known = find(page);
    std::int32_t number = known != pages_.end() ? known->first : 1;
    if (known == pages_.end() && pages_.size() == limit) {
        number = pages_.back().first;
    } else if (known == pages_.end()) {
        while (has(number)) {
            ++number;
        }
    }
    pages_.remove_if([&](auto const & entry) { return entry.first == number; });
    pages_.emplace_front(number, page.c_str());

    settings_->write_by_index_string("pages", "page", number, page.c_str());
    settings_->write_by_index_string("pages", "sum", number, std::to_string(sum));
    zel::string order;
    for (auto const & [used, name] : pages_) {
        order += order.empty() ? "" : ",";
        order += std::to_string(used);
    }
    settings_->write_string("pages", "order", order);
}

bool recent_pages::find_sum(zel::path const & page, std::int32_t & sum) const
{
    auto const known = find(page);
    if (known != pages_.end()) {
        sum = settings_->read_by_index_int("pages", "sum", known->first);
    }
    return known != pages_.end();
}

recent_pages::entries::const_iterator recent_pages::find(zel::path const & page) const
{
    return std::find_if(pages_.begin(), pages_.end(),
                        [&](auto const & entry) { return page == entry.second.c_str(); });
}

std::list<zel::path> recent_pages::list() const
{
    std::list<zel::path> pages;
    for (auto const & [number, name] : pages_) {
        pages.emplace_back(name);
    }
    return pages;
}

namespace {

zel::path settings_folder()
{
    zel::path folder(zel::path::app_data);
    if (folder.empty() || !folder.append("zel-notebook") || !folder.create()) {
        throw zel::exception("there is no folder for settings");
    }
    return folder;
}

} // namespace

settings::settings()
    : folder_(settings_folder())
    , file_(new zel::ini_file(zel::path(folder_.c_str(), "settings.ini").c_str()))
    , cache_(new zel::cached_profile(file_))
    , window_(store(new zel::sub_profile(cache_, "window")))
    , recent_(store(new zel::sub_profile(cache_, "recent")))
{
}

void settings::save()
{
    // A write returns nothing, but a failure leaves its reason in the last error.
    zel::platform::set_last_error(0);
    cache_->commit();
    if (zel::platform::last_error() != 0) {
        zel::string reason = zel::get_last_error();
        reason.trim_right();
        throw zel::exception(zel::to_native(file_->get_path()) + ": " + reason);
    }
}

void settings::ask_for(zel::path const & page)
{
    file_->write_string("request", "page", page.c_str());
}

zel::path settings::take_request()
{
    zel::string const page = file_->read_string("request", "page", "");
    if (!page.empty()) {
        file_->write_string("request", "page", "");
    }
    return page;
}

} // namespace notebook
