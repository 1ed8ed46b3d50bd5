// SPDX-License-Identifier: MIT
#include <cstdio>
#include <zel/zel.h>

int main()
{
    zel::name_generator const shortener;
    std::puts(shortener.abbreviate("temperature_offset", 10).c_str());
}
