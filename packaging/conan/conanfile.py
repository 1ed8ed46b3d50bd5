# SPDX-License-Identifier: MIT
"""Conan 2: `conan create packaging/conan` from a checkout of the release."""

import os
import re

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load, rmdir

required_conan_version = ">=2.0"


class ZelConan(ConanFile):
    name = "zel"
    description = "General-purpose class library for programs that were shaped by a desktop platform"
    license = "MIT"
    topics = ("strings", "settings", "threads", "named-objects")
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False], "fPIC": [True, False]}
    default_options = {"shared": True, "fPIC": True}
    implements = ["auto_shared_fpic"]

    @property
    def _root(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        header = load(self, os.path.join(self._root, "zel", "version.h"))
        numbers = re.findall(r"^#define ZEL_VERSION_[A-Z]+ ([0-9]+)$", header, re.MULTILINE)
        self.version = ".".join(numbers)

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "LICENSE", "zel/*", "cmake/*"):
            copy(self, pattern, self._root, self.export_sources_folder)

    def layout(self):
        cmake_layout(self)

    def validate(self):
        check_min_cppstd(self, 20)
        if self.settings.os != "Linux" or self.settings.arch not in ("x86_64", "armv8"):
            raise ConanInvalidConfiguration("zel runs on x86-64 and 64-bit Arm Linux")

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["ZEL_BUILD_TESTS"] = False
        toolchain.cache_variables["ZEL_BUILD_EXAMPLES"] = False
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        copy(self, "LICENSE", self.source_folder, os.path.join(self.package_folder, "licenses"))
        CMake(self).install()
        rmdir(self, os.path.join(self.package_folder, "lib", "cmake"))
        rmdir(self, os.path.join(self.package_folder, "lib", "pkgconfig"))

    def package_info(self):
        self.cpp_info.libs = ["zel"]
        self.cpp_info.set_property("cmake_file_name", "zel")
        self.cpp_info.set_property("cmake_target_name", "zel::zel")
        self.cpp_info.set_property("pkg_config_name", "zel")
        self.cpp_info.system_libs = ["pthread", "dl", "m"]
