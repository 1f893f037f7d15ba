"""Writes the results into the page on performance."""
import os
import platform
import shutil
import subprocess
from pathlib import Path

from measure.tables import PICTURES

BEGIN = "<!-- begin of the part that bench/run --publish writes -->\n"
END = "<!-- end of the part that bench/run --publish writes -->\n"


def publish(tree, fixture, report):
    """Replaces the results of an earlier run on the page, and its pictures."""
    page = tree / "docs/performance.md"
    text = page.read_text()
    before, _, rest = text.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not end:
        raise ValueError(f"{page}: the marks around the results are missing")
    measured = "\n".join([machine(fixture), *report.sections])
    page.write_text(f"{before}{BEGIN}\n{measured}\n{END}{after}")

    pictures = page.parent / PICTURES
    shutil.rmtree(pictures, ignore_errors=True)
    pictures.mkdir()
    for name in report.pictures:
        shutil.copy(report.folder / f"{name}.svg", pictures)


def machine(fixture):
    """One paragraph on the machine and the versions."""
    return (
        f"{processor()}, {os.cpu_count()} cores, {platform.machine()}; Linux "
        f"{platform.release().partition('-')[0]}; GStreamer {version('gstreamer-1.0')}, "
        f"Qt {version('Qt5Core')}, "
        f"ALSA {version('alsa')}, log4cplus {version('log4cplus')}. {fixture.rounds} rounds; "
        f"{fixture.few} for values that vary little. Each cell is the median (lower … upper quartile) "
        "and its ratio to the median of the baseline.\n"
    )


def processor():
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        key, _, value = line.partition(":")
        if key.strip() == "model name":
            return " ".join(value.split())
    return platform.processor() or "unknown processor"


def version(module):
    command = ["pkg-config", "--modversion", module]
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout.strip()
