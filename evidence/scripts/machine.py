"""What measured times depend on."""

import os
import platform
import re


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
