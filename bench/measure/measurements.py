"""The measurements. Contenders take turns, so that other load on the machine affects them all."""
import math
import time

from measure.fixture import PATIENCE, Card, Failure
from measure.tables import Table

MILLISECOND = 1e6  # nanoseconds
MEBIBYTE = 1 << 20

# The formats without added silence. Decoders differ in how much of that they remove.
EXACT_LENGTH = ("wav", "ogg")

FIRST_SOUND = "start to first sound"
PLAYS = {"wav": 10, "ogg": 1, "mp3": 1}  # players in each process


def starts(fixture, report):
    """The time from the start to the first sound, and from the last sound to the outcome."""
    for kind, item in fixture.items.formats(0.2).items():
        first = Table(f"first-{kind}", f"{FIRST_SOUND}, first player", "ms", "bare-qt")
        tenth = Table(f"tenth-{kind}", f"{FIRST_SOUND}, tenth player", "ms", "bare-qt")
        process = Table(f"process-{kind}", "start of the process to first sound", "ms", "bare-qt")
        outcome = Table(f"outcome-{kind}", "last sound to outcome", "ms", None)
        tables = (first, tenth, process, outcome)
        card = Card(fixture, record=True)
        for _ in range(fixture.rounds):
            for name in fixture.able(kind):
                with fixture.excused(name):
                    run = fixture.run(name, card, "sequence", item, PLAYS[kind])
                    sounds = card.sounds()
                    played = [sound_of(play, sounds) for play in run.plays]
                    gaps = [s.begin - p.start for p, s in zip(run.plays, played)]
                    first.add(name, gaps[0] / MILLISECOND)
                    process.add(name, (played[0].begin - run.begun) / MILLISECOND)
                    if len(gaps) == 10:
                        tenth.add(name, gaps[-1] / MILLISECOND)
                    if kind in EXACT_LENGTH:
                        for play, sound in zip(run.plays, played):
                            outcome.add(name, (play.outcome - sound.end) / MILLISECOND)
        first.unable = fixture.unable(kind)
        report.show(f"Start and end, {kind.upper()}", *tables, picture=first)


def sound_of(play, sounds):
    for sound in sounds:
        if sound.begin >= play.start:
            return sound
    raise Failure("the card recorded no sound")


def loop(fixture, report):
    """The time between two passes of a loop, and how much of a pass is lost."""
    seconds = 0.5
    item = fixture.items.wav(seconds)
    for kind, options in (("can pause", ()), ("cannot pause", ("--no-pause",))):
        word = kind.replace(" ", "-")
        turn = Table(f"loop-{word}", "last sound of a pass to first of the next", "ms", "bare-qt")
        lost = Table(f"loop-lost-{word}", "lost of a pass", "ms", None)
        card = Card(fixture, ("default",), 1, *options, record=True)
        for _ in range(fixture.few):
            for name in ("bare-glib", "bare-qt", "kova"):
                sounds = passes(fixture, name, card, item)
                for before, after in zip(sounds, sounds[1:]):
                    turn.add(name, (after.begin - before.end) / MILLISECOND)
                    lost.add(name, (seconds - after.seconds) * 1000)
        report.show(f"Loop on a card that {kind}", turn, lost)


def passes(fixture, name, card, item, count=5):
    """The recorded sounds of the first passes of a loop."""
    process, _ = fixture.launch(name, card, "loop", item, 1)
    wait_until(lambda: len(card.times("first-frame") + card.times("resume")) > count, process)
    process.kill()
    process.communicate()
    return card.sounds()[:count]


def wait_until(condition, process):
    patience = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > patience:
            process.kill()
        if process.poll() is not None:
            raise Failure(f"{process.args} exited: {process.stderr.read()}")
        time.sleep(0.002)


def instructions(fixture, report):
    """The instructions of a process that plays one second, and of each further player."""
    unit = "million instructions"
    whole = Table("instructions", "whole process", unit, "bare-qt")
    loading = Table("instructions-loading", "dynamic linker's part", unit, "bare-qt")
    further = Table("instructions-further", "each further player", unit, "bare-qt")
    labels = [*fixture.contenders, *(f"{n}+trace" for n in fixture.contenders if n == "kova")]

    def count(label):
        with fixture.excused(label):
            return count_instructions(fixture, *label.partition("+")[::2])

    # Once: the count varies by less than 1 %.
    for label, counts in zip(labels, fixture.in_parallel(count, labels)):
        if counts:
            one, each = counts
            whole.add(label, one.all / 1e6)
            loading.add(label, one.loading / 1e6)
            further.add(label, each / 1e6)
    report.show("Instructions for one second of WAV", whole, loading, further, picture=whole)


def count_instructions(fixture, name, trace=False, more=3):
    """The counts of a process with one player, and of each further player."""
    item = fixture.items.wav(1)
    one = fixture.instructions(name, "sequence", item, 1, trace)
    longer = fixture.instructions(name, "sequence", item, 1 + more, trace)
    return one, (longer.all - one.all) / more


def cpu(fixture, report):
    """The processor time of each second of sound, without that of the start."""
    tables = []
    unable = {}
    for kind, item in fixture.items.formats(6).items():
        table = Table(f"cpu-{kind}", kind.upper(), "ms", "bare-qt")
        names = fixture.able(kind)
        for _ in range(fixture.few):
            base = at_once(fixture, names, fixture.items.formats(1)[kind])
            whole = at_once(fixture, names, item)
            for name in (name for name in names if name in base and name in whole):
                table.add(name, (whole[name].cpu - base[name].cpu) / 5 * 1000)
        tables.append(table)
        unable |= fixture.unable(kind)
    tables[0].unable = unable
    report.show("Processor time for a second of sound", *tables, picture=tables[0])


def at_once(fixture, names, item):
    """Runs all contenders at the same time, each on its own card, under equal conditions."""
    started = {
        name: fixture.launch(name, Card(fixture, folder=f"cards-{name}"), "sequence", item, 1)
        for name in names
    }
    runs = {}
    for name, process in started.items():
        with fixture.excused(name):
            runs[name] = fixture.finish(*process)
    return runs


RESOURCES = {"heap": "KiB", "resident": "KiB", "threads": "", "descriptors": ""}


def resources(fixture, report):
    """The memory, threads and descriptors of each further player, idle and playing."""
    for mode, few, many in (("idle", 1, 101), ("playing", 1, 9)):
        need = "card" if mode == "playing" else None
        tables = {
            what: Table(f"{mode}-{what}", what, unit, "bare-qt") for what, unit in RESOURCES.items()
        }
        for _ in range(fixture.few):
            for name in fixture.able(need):
                with fixture.excused(name):
                    usage = further_player(fixture, name, mode, few, many)
                    for what, table in tables.items():
                        table.add(name, usage[what] / (1024 if table.unit == "KiB" else 1))
        tables["heap"].unable = fixture.unable(need)
        report.show(f"Each further player, {mode}", *tables.values(), picture=tables["resident"])


def further_player(fixture, name, mode, few, many):
    """The resources of one more player: the difference between two numbers of players, divided."""
    if mode == "idle":
        low, high = fixture.run(name, Card(fixture), mode, fixture.items.wav(1), many).resources
    else:
        low, high = (while_playing(fixture, name, count) for count in (few, many))
    return {what: (getattr(high, what) - getattr(low, what)) / (many - few) for what in RESOURCES}


def while_playing(fixture, name, count):
    """The resources of a process while all of its players play."""
    card = Card(fixture, cards(count))
    process, begun = fixture.launch(name, card, "playing", fixture.items.wav(6), count)
    wait_until(lambda: all(card.times("first-frame", one) for one in card.names), process)
    process.stdin.write("\n")
    process.stdin.flush()
    return fixture.finish(process, begun).resources[0]


def cards(count):
    return tuple(f"card{number + 1}" for number in range(count))


TOGETHER = (1, 4, 16, 64)


def together(fixture, report):
    """Processor time, memory and start of 1, 4, 16 and 64 simultaneous players."""
    graphs = {
        "together-cpu": ("processor time of the process", "ms"),
        "together-memory": ("peak memory of the process", "MiB"),
        "together-start": ("start to first frame", "ms"),
    }
    curves = {graph: {} for graph in graphs}
    item = fixture.items.wav(1)
    for count in TOGETHER:
        tables = {
            graph: Table(f"{graph}-{count}", title, unit, "bare-qt")
            for graph, (title, unit) in graphs.items()
        }
        tables["together-cpu"].unable = fixture.unable("card")
        card = Card(fixture, cards(count))
        for _ in range(fixture.few):
            for name in fixture.able("card"):
                with fixture.excused(name):
                    run = fixture.run(name, card, "together", item, count)
                    tables["together-cpu"].add(name, run.cpu * 1000)
                    tables["together-memory"].add(name, run.counted["peak"][0] / MEBIBYTE)
                    for play, one in zip(run.plays, card.names):
                        begun = first_frame(card, one)
                        tables["together-start"].add(name, (begun - play.start) / MILLISECOND)
        # The page has the tables of the ends of the curves, and the pictures.
        output = report.show if count in (min(TOGETHER), max(TOGETHER)) else report.save
        output(f"{count} at once, one second of WAV each", *tables.values())
        for graph, table in tables.items():
            for name in table.values:
                curves[graph].setdefault(name, {})[count] = table.median(name)
    for graph, (title, unit) in graphs.items():
        report.draw_lines(graph, title, "players at once", unit, curves[graph])
    show_exponents(report, graphs, curves)


def first_frame(card, name):
    """When a card began to play. Here contenders open a card only to play."""
    times = card.times("first-frame", name)
    if not times:
        raise Failure(f"{name} played nothing")
    return times[0]


def show_exponents(report, graphs, curves):
    """The growth of each curve: 1 is proportional to the number of players, 0 is constant."""
    tables = []
    for graph, (title, _) in graphs.items():
        table = Table(f"{graph}-exponent", title, "exponent", None)
        for name, points in curves[graph].items():
            table.add(name, exponent(points))
        tables.append(table)
    report.show("Growth with the number of players", *tables)


def exponent(points):
    """The slope of the least-squares line through the points, both axes logarithmic."""
    xs, ys = ([math.log(value) for value in values] for values in (points, points.values()))
    middle_x, middle_y = sum(xs) / len(xs), sum(ys) / len(ys)
    across = sum((x - middle_x) * (y - middle_y) for x, y in zip(xs, ys))
    return across / sum((x - middle_x) ** 2 for x in xs)


SMALL_ARRAY = 32  # MiB; as many chunks at a time as with a larger array


def data(fixture, report):
    """How often a DataSimplePlayer copies its array, and its memory in addition to the array."""
    card = Card(fixture, ("default",), 1000, "--starve", "wait")
    copies = Table("data-copies", "copies", "", None)
    chunks = Table("data-chunks", "chunks", "", None)
    for who in ("unshared", "shared"):
        for size in (1, 4, 16):
            counted = fixture.probe(card, "data", "default", size * MEBIBYTE, who)
            copies.add(f"{size} MiB, {who}", counted["copies"][0])
            chunks.add(f"{size} MiB, {who}", counted["chunks"][0])
    report.show("The array of a DataSimplePlayer", copies, chunks)
    report.say(
        f"In addition to its array, a process with 256 MiB uses "
        f"{large_array_overhead(fixture) / MEBIBYTE:.2f} MiB more than one with {SMALL_ARRAY} MiB."
    )


def large_array_overhead(fixture, size=256):
    """The growth of the peak memory beyond the growth of the array, in bytes."""
    card = Card(fixture, ("default",), 1000, "--starve", "wait")
    peaks = {SMALL_ARRAY: [], size: []}
    for _ in range(3):
        for mebibytes, overheads in peaks.items():
            counted = fixture.probe(card, "data", "default", mebibytes * MEBIBYTE, "unshared")
            overheads.append(counted["peak"][0] - mebibytes * MEBIBYTE)
    # The memory of threads differs between runs. The minimum is without that.
    return min(peaks[size]) - min(peaks[SMALL_ARRAY])


STREAMS = ("fdsrc-stream", "kova-stream")


def stream(fixture, report):
    """Sound from a named pipe, compared with GStreamer's own reader in the same pipeline."""
    stream_in_time(fixture, report)
    stream_rate(fixture, report)


def stream_in_time(fixture, report):
    baseline = STREAMS[0]
    spent = Table("stream-cpu", "processor time for a MiB", "ms", baseline)
    waits = Table("stream-waits", "waits of threads for a MiB", "waits", baseline)
    work = Table("stream-work", "a block of 4096 bytes", "thousand instructions", baseline)
    small, large = fixture.items.wav(1), fixture.items.wav(11)
    size = large.stat().st_size - small.stat().st_size
    card = Card(fixture)
    for _ in range(fixture.few):
        for name in STREAMS:
            brief, whole = (fixture.run_stream(name, card, item) for item in (small, large))
            spent.add(name, (whole.cpu - brief.cpu) * 1000 / (size / MEBIBYTE))
            waits.add(name, (whole.usage.ru_nvcsw - brief.usage.ru_nvcsw) / (size / MEBIBYTE))
    runs = [(name, item) for name in STREAMS for item in (small, large)]
    counts = fixture.in_parallel(lambda run: fixture.stream_instructions(*run).all, runs)
    for name, brief, whole in zip(STREAMS, counts[::2], counts[1::2]):
        work.add(name, (whole - brief) / (size / 4096) / 1000)
    report.show("A pipe, in real time", spent, waits, work, picture=work)


def stream_rate(fixture, report):
    """On a card that plays faster than real time. It counts underruns instead of waiting for its
    client, because waiting would include looking at all threads of the client."""
    baseline = STREAMS[0]
    item = fixture.items.wav(60)
    size = item.stat().st_size / MEBIBYTE
    for speed in (20, 400):
        rate = Table(f"stream-rate-{speed}", "from the pipe to the card", "MiB a second", baseline)
        waits = Table(f"stream-rate-waits-{speed}", "waits of threads for a MiB", "waits", baseline)
        spent = Table(f"stream-rate-cpu-{speed}", "processor time for a MiB", "ms", baseline)
        xruns = Table(f"stream-xruns-{speed}", "underruns of the card", "", None)
        card = Card(fixture, ("default",), speed)
        for _ in range(fixture.rounds):
            for name in STREAMS:
                run = fixture.run_stream(name, card, item)
                (closed,) = card.times("close")
                seconds = (closed - card.times("first-frame")[0]) / 1e9
                rate.add(name, size / seconds)
                waits.add(name, run.usage.ru_nvcsw / size)
                spent.add(name, run.cpu * 1000 / size)
                xruns.add(name, len(card.times("xrun")))
        report.show(f"A pipe, {speed} times faster than real time", rate, waits, spent, xruns)


ALL = {
    "starts": starts,
    "loop": loop,
    "instructions": instructions,
    "cpu": cpu,
    "resources": resources,
    "together": together,
    "data": data,
    "stream": stream,
}
