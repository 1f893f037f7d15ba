"""The part of the page on performance that is written by the benchmark."""
import os
import platform
import shutil
import subprocess
from pathlib import Path

from measure.tables import PICTURES

BEGIN = "<!-- what follows is written by bench/run --publish -->\n"
END = "<!-- what was measured ends here -->\n"


def publish(tree, stage, report):
    """Replaces what the page tells of an earlier run, and its pictures."""
    page = tree / "docs/performance.md"
    text = page.read_text()
    before, _, rest = text.partition(BEGIN)
    _, _, behind = rest.partition(END)
    if not behind:
        raise ValueError(f"{page}: there is no place for what was measured")
    measured = "\n".join([machine(stage), *report.sections])
    page.write_text(f"{before}{BEGIN}\n{measured}\n{END}{behind}")

    pictures = page.parent / PICTURES
    shutil.rmtree(pictures, ignore_errors=True)
    pictures.mkdir()
    for name in report.pictures:
        shutil.copy(report.folder / f"{name}.svg", pictures)


def machine(stage):
    """One paragraph on what the figures were measured with."""
    return (
        f"{processor()}, {os.cpu_count()} cores, {platform.machine()}; Linux "
        f"{platform.release().partition('-')[0]}; GStreamer {version('gstreamer-1.0')}, Qt {version('Qt5Core')}, "
        f"ALSA {version('alsa')}, log4cplus {version('log4cplus')}. {stage.rounds} rounds; what "
        f"varies little, {stage.few}. Each cell is the median (lower … upper quartile) and how many "
        "times the floor's median that is.\n"
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
