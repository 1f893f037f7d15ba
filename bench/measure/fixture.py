"""The fixture of all measurements: virtual sound cards, items, and running a contender."""
import os
import re
import resource
import shutil
import subprocess
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from dataclasses import dataclass, field

from measure import sounds
from measure.items import Items

# In the order of the tables. The build puts them all into one folder.
CONTENDERS = (
    "bare-glib",
    "bare-qt",
    "kova",
    "kova-prepared",
    "kova-lean",
    "qmediaplayer",
    "gstplay",
    "mpv",
    "vlc",
    "sdl-mixer",
    "canberra",
)

# The contenders that all others are compared with.
BASELINES = ("bare-glib", "bare-qt")

# What some contenders cannot do, by the requirement of a measurement.
ONE_CARD = "plays on the default device only"
CANNOT = {
    "card": {"qmediaplayer": ONE_CARD, "sdl-mixer": ONE_CARD},
    "mp3": {"canberra": "plays no MP3"},
}


# Seconds until a program counts as hung. Under valgrind, on a busy machine, some run for minutes.
PATIENCE = 600


class Failure(Exception):
    """A contender failed or did not play."""


@dataclass
class Play:
    """Monotonic nanoseconds of the start call and of the outcome."""

    start: int
    outcome: int


@dataclass
class Resources:
    """What a process uses with a number of players: bytes and counts."""

    players: int
    heap: int
    resident: int
    threads: int
    descriptors: int


@dataclass
class Run:
    """The results of one process."""

    begun: int
    plays: list = field(default_factory=list)
    resources: list = field(default_factory=list)
    counted: dict = field(default_factory=dict)
    usage: resource.struct_rusage = None

    @property
    def cpu(self):
        """Seconds of processor time, user and system."""
        return self.usage.ru_utime + self.usage.ru_stime


class Card:
    """Virtual sound cards. Each logs what happens to it, with the times."""

    def __init__(
        self, fixture, names=("default",), speed=1, *options, folder="cards", record=False
    ):
        self.folder = fixture.results / folder
        self.folder.mkdir(exist_ok=True)
        self.names = names
        if record:
            options += ("--record", "RECORD")
        text = fixture.card_configuration(
            "--name", "NAME", "--plugin", fixture.plugin, "--speed", str(speed), "--events", "EVENTS",
            *options,
        )
        # The settings of all cards precede the first card.
        common, mine = text[: text.index("pcm.NAME ")], text[text.index("pcm.NAME ") :]
        self.configuration = self.folder / "asound.conf"
        self.configuration.write_text(common + "".join(self.named(mine, name) for name in names))

    def named(self, text, name):
        for word, suffix in (("EVENTS", "events"), ("RECORD", "wav")):
            text = re.sub(f'"[^"]*{word}"', lambda _: f'"{self.path(name, suffix)}"', text)
        return text.replace("pcm.NAME", f"pcm.{'!' if name == 'default' else ''}{name}")

    def path(self, name, suffix="events"):
        return self.folder / f"{name}.{suffix}"

    def clear(self):
        for name in self.names:
            self.path(name).unlink(missing_ok=True)
            for record in self.folder.glob(f"{name}*.wav"):
                record.unlink()

    def events(self, name="default"):
        """The card's log as tuples of nanoseconds, event and details."""
        if not self.path(name).exists():
            return []
        lines = self.path(name).read_text().splitlines()
        return [(int(time), *rest) for time, *rest in (line.split() for line in lines)]

    def times(self, event, name="default"):
        """The times of all events of one kind."""
        return [time for time, what, *_ in self.events(name) if what == event]

    def sounds(self, name="default"):
        """The recorded sounds. The card must record, in real time."""
        return sounds.sounds(self.events(name), self.path(name, "wav"))


class Fixture:
    def __init__(self, tree, rounds, only=None):
        self.tree = tree
        self.rounds = rounds
        self.few = max(1, rounds // 3)  # for slow measurements and values that vary little
        self.build = tree / "build/bench"
        self.plugin = self.build / "lib/libasound_module_pcm_virtualcard.so"
        self.results = self.build / "results"
        self.results.mkdir(exist_ok=True)
        self.failures = 0
        self.items = Items(self.results / "items")
        self.contenders = []
        for name in (*BASELINES, *only) if only else CONTENDERS:
            if self.program(name).exists():
                self.contenders.append(name)
            else:
                print(f"left out, as its development package is missing: {name}")
        self.warm_up()

    def able(self, need):
        """The contenders that meet a requirement."""
        return [name for name in self.contenders if name not in CANNOT.get(need, {})]

    def unable(self, need):
        """The contenders that do not, with the reasons."""
        return {name: why for name, why in CANNOT.get(need, {}).items() if name in self.contenders}

    @contextmanager
    def excused(self, name):
        """Reports a failure of a contender, which then has no value in this round."""
        try:
            yield
        except Failure as failure:
            self.failures += 1
            print(f"FAILED: {name}: {failure}", flush=True)

    def program(self, name):
        return self.build / "contenders" / name

    def card_configuration(self, *options):
        tool = self.tree / "src/tools/virtualcard/virtualcard-config"
        return subprocess.run([tool, *options], check=True, text=True, stdout=subprocess.PIPE).stdout

    def warm_up(self):
        """Fills GStreamer's registry and the page cache."""
        card = Card(self, speed=20)
        for name in self.contenders:
            with self.excused(name):
                self.run(name, card, "sequence", self.items.wav(0.5), 1)

    def environment(self, card, trace=False):
        kept = {n: v for n, v in os.environ.items() if not n.startswith(("GST_", "KOVA_", "QT_"))}
        own = {
            "ALSA_CONFIG_PATH": str(card.configuration),
            "GST_REGISTRY": str(self.results / "registry.bin"),
            "KOVA_BENCH_CARD": str(self.plugin),
            "LC_ALL": "C",
        }
        return kept | own | ({"KOVA_BENCH_TRACE": "1"} if trace else {})

    def start(self, command, card, trace=False):
        """Starts a program on an unused card. Returns the process and the time of its start."""
        card.clear()
        environment = self.environment(card, trace)
        begun = time.monotonic_ns()
        process = subprocess.Popen(
            [str(word) for word in command],
            env=environment,
            text=True,
            close_fds=False,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
        )
        return process, begun

    def launch(self, name, card, mode, item, count, wrapper=(), trace=False):
        # With several cards each player gets its own: the device name and a number.
        device = "default" if card.names == ("default",) else "card"
        command = [*wrapper, self.program(name), mode, item, device, count]
        return self.start(command, card, trace)

    def run(self, *order, **options):
        return self.finish(*self.launch(*order, **options))

    def probe(self, card, *arguments):
        """The counts that the probe prints, by name."""
        process, begun = self.start([self.program("probe"), *arguments], card)
        return self.finish(process, begun).counted

    def finish(self, process, begun):
        """Reads the output of a program until it exits."""
        run = Run(begun)
        watchdog = threading.Timer(PATIENCE, process.kill)
        watchdog.start()
        with process.stdin, process.stdout, process.stderr:
            output = process.stdout.read()
            errors = process.stderr.read()
        watchdog.cancel()
        _, status, run.usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            raise Failure(f"{process.args} ended with {process.returncode}: {errors}")
        for line in output.splitlines():
            word, *values = line.split()
            if word == "play":
                run.plays.append(Play(*map(int, values)))
            elif word == "resources":
                run.resources.append(Resources(*map(int, values)))
            else:
                run.counted[word] = [int(value) for value in values]
        return run

    def run_stream(self, name, card, item, wrapper=()):
        """Plays an item that is written into a named pipe as fast as the program reads it."""
        pipe = card.folder / "pipe"
        pipe.unlink(missing_ok=True)
        os.mkfifo(pipe)
        process, begun = self.launch(name, card, "sequence", pipe, 1, wrapper=wrapper)
        with open(pipe, "wb") as writer:  # waits for the reader
            shutil.copyfileobj(open(item, "rb"), writer)
        return self.finish(process, begun)

    def instructions(self, name, mode, item, count, trace=False):
        """The instructions of a whole process, in all threads."""
        folder = f"cards-{name}-{trace}"
        run = lambda wrapper: self.run(  # noqa: E731
            name, Card(self, folder=folder), mode, item, count, wrapper=wrapper, trace=trace
        )
        return self.counting(run, folder)

    @staticmethod
    def in_parallel(function, *arguments):
        """Calls a function for each argument, on all processors. Only for results that do not depend
        on the load of the machine."""
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            return list(pool.map(function, *arguments))

    def stream_instructions(self, name, item):
        folder = f"cards-{name}-{item.stem}"
        card = Card(self, folder=folder)
        return self.counting(lambda wrapper: self.run_stream(name, card, item, wrapper), folder)

    def counting(self, run, folder):
        """Calls `run` with the command of callgrind, to put before the command of the program."""
        counts = self.results / folder / "callgrind.out"
        run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={counts}"])
        return Instructions(counts.read_text().splitlines())


class Instructions:
    """The instructions that callgrind counted, and the dynamic linker's part of them."""

    def __init__(self, lines):
        self.all = self.loading = 0
        names = {}
        loader = inclusive = False
        for line in lines:
            key, _, value = line.partition("=")
            if key in ("ob", "cob"):
                # Only the first occurrence of a number has the name.
                number, _, name = value.partition(" ")
                names.setdefault(number, name)
                loader = "/ld-linux" in names[number] if key == "ob" else loader
            elif line.startswith("calls="):
                inclusive = True  # the next line repeats the cost of the called function
            elif line[:1].isdigit() or line[:1] in "+-*":
                if not inclusive:
                    cost = sum(map(int, line.split()[1:]))  # no number means zero
                    self.all += cost
                    self.loading += cost if loader else 0
                inclusive = False
