"""What measured times depend on: the machine, its kernel, the compiler, the library."""

import os
import platform
import re
import subprocess

POCO_VERSION_HEADER = "/usr/include/Poco/Version.h"


def first_value(path, key, separator):
    with open(path, encoding="utf-8") as handle:
        for line in handle:
            name, found, value = line.partition(separator)
            if found and name.strip() == key:
                return value.strip()
    return None


def machine_text():
    """Processor, memory, distribution, kernel; without what a host appends to the kernel's version."""
    model = first_value("/proc/cpuinfo", "model name", ":") or platform.machine()
    memory = first_value("/proc/meminfo", "MemTotal", ":")
    gib = f"{int(memory.split()[0]) / 1024 / 1024:.0f} GiB" if memory else "unknown"
    distribution = (first_value("/etc/os-release", "PRETTY_NAME", "=") or "Linux").strip('"')
    kernel = re.match(r"[0-9.]*", platform.release()).group()
    return f"{model}, {os.cpu_count()} processors, {gib} of memory, {distribution}, Linux {kernel}"


def compiler_text(command="c++"):
    first = subprocess.run([command, "--version"], capture_output=True, text=True).stdout.split("\n")[0]
    return first or "an unknown compiler"


def flags_text(build):
    """The flags for C++ with which the build directory is configured."""
    cache = os.path.join(build, "CMakeCache.txt")
    kind = first_value(cache, "CMAKE_BUILD_TYPE:STRING", "=") or ""
    names = ("CMAKE_CXX_FLAGS:STRING", f"CMAKE_CXX_FLAGS_{kind.upper()}:STRING")
    return " ".join(filter(None, (first_value(cache, name, "=") for name in names))) or "no flags"


def poco_version():
    """The version that was compiled with, as 1.11.0."""
    with open(POCO_VERSION_HEADER, encoding="utf-8") as handle:
        found = re.search(r"#define POCO_VERSION 0x(\w\w)(\w\w)(\w\w)", handle.read())
    return ".".join(str(int(part, 16)) for part in found.groups()) if found else "of unknown version"
