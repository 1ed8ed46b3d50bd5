// SPDX-License-Identifier: MIT
// One variable of each kind for a debugger to print; see gdb_test.cmake.
#include <zel/zel.h>

extern "C" [[gnu::noinline]] void stop_here() { __asm__ volatile(""); }

int main()
{
    zel::string const text("text");
    zel::string const long_text("a \"quoted\" text that is too long to lie in the object");
    zel::string const empty_text;
    zel::variant const number(42);
    zel::variant const negative(-3);
    zel::variant const fraction(0.1);
    zel::variant const single(0.5F);
    zel::variant const truth(true);
    zel::variant const words(zel::string("some words"));
    zel::variant const dyed(zel::color_ref(0x44332211));
    zel::variant const nothing;
    zel::time moment(1, zel::time::march, 2007, 9, 5, 7, 42);
    zel::time const undated = moment;
    moment.set_day_of_week(zel::time::thursday);
    zel::timer const span(-2, 3, 4, 5, 6);
    [[maybe_unused]] zel::point const place(3, -4);
    [[maybe_unused]] zel::size const extent(640, 480);
    [[maybe_unused]] zel::rect const area(0, 0, 10, 5);
    [[maybe_unused]] zel::color_ref const red(0x000000FF);
    [[maybe_unused]] zel::uid const id(0x0123ABCD, 0x4567, 0x89AB,
                                       {0xCD, 0xEF, 1, 0x23, 0x45, 0x67, 0x89, 0xAB});
    zel::buffer const bytes(reinterpret_cast<unsigned char const *>("\1\2\xFF"), 3);
    zel::buffer const no_bytes;
    zel::path const file("data/latest.txt");
    zel::auto_ptr<zel::timer> const shared(new zel::timer(1, 0, 0, 0, 0));
    zel::auto_ptr<zel::timer> const sharing(shared);
    zel::auto_ptr<zel::buffer> const null;
    zel::variant::exception const failure(zel::variant::exception::out_of_range, "here");
    zel::auto_ptr<zel::logger> const log(new zel::logger);
    log->write(zel::logger::error, "%s", "text");
    zel::event const unnamed(true);
    zel::auto_ptr<zel::iprofile> const settings(new zel::ini_file("settings.ini"));
    zel::auto_ptr<zel::iprofile> const cache(new zel::cached_profile(settings));
    zel::sub_profile const view(cache, "view");
    stop_here();
}
