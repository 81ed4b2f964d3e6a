"""The machine that is measured on: what it is, how busy it is, and what it lacks."""

import datetime
import os
import platform
import shutil
import subprocess
import sys


def install(*wanted):
    """Installs the Debian package of each (program, package) whose program is missing."""
    search = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
    missing = [package for program, package in wanted if not shutil.which(program, path=search)]
    if not missing:
        return
    as_root = [] if os.geteuid() == 0 else ["sudo"]
    environment = ["env", "DEBIAN_FRONTEND=noninteractive"]
    for command in (["apt-get", "update", "-q"],
                    ["apt-get", "install", "-y", "-q", "--no-install-recommends"] + missing):
        subprocess.run(as_root + environment + command, check=True, stdout=sys.stderr)


def _processor():
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as info:
        for line in info:
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    return platform.machine()


def _memory_gib():
    return os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2 ** 30


def _system():
    with open("/etc/os-release", encoding="utf-8") as release:
        for line in release:
            if line.startswith("PRETTY_NAME="):
                return line.split("=", 1)[1].strip().strip('"')
    return platform.system()


def _revision(root):
    found = subprocess.run(["git", "-C", str(root), "describe", "--always", "--dirty"],
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                           check=False)
    return found.stdout.strip() or "unknown"


def describe(root):
    """One paragraph: processor, memory, system, time and revision."""
    now = datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC")
    return "%s; %d processors (%s), %.1f GiB, %s, Linux %s; revision %s" % (
        now, os.cpu_count(), _processor(), _memory_gib(), _system(), platform.release(),
        _revision(root))


def load():
    """The load average over the last minute."""
    return os.getloadavg()[0]
