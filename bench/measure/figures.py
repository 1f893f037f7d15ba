"""The figures. Contenders take turns, so that what the machine does besides meets all of them."""
import math
import time

from measure.stage import PATIENCE, Card, Failure
from measure.tables import Table

MILLISECOND = 1e6  # nanoseconds
MEBIBYTE = 1 << 20

# The formats that do not add silence, of which every decoder would leave another part.
EXACT_LENGTH = ("wav", "ogg")

FIRST_SOUND = "start to first sound"
PLAYS = {"wav": 10, "ogg": 1, "mp3": 1}  # players in each process


def starts(stage, report):
    """How long until sound is heard, and until its end is known."""
    for kind, item in stage.items.formats(0.2).items():
        first = Table(f"first-{kind}", f"{FIRST_SOUND}, first player", "ms", "bare-qt")
        tenth = Table(f"tenth-{kind}", f"{FIRST_SOUND}, tenth player", "ms", "bare-qt")
        process = Table(f"process-{kind}", "start of the process to first sound", "ms", "bare-qt")
        outcome = Table(f"outcome-{kind}", "last sound to outcome", "ms", None)
        tables = (first, tenth, process, outcome)
        card = Card(stage, record=True)
        for _ in range(stage.rounds):
            for name in stage.able(kind):
                with stage.excused(name):
                    run = stage.run(name, card, "sequence", item, PLAYS[kind])
                    sounds = card.sounds()
                    heard = [sound_of(play, sounds) for play in run.plays]
                    gaps = [s.begin - p.start for p, s in zip(run.plays, heard)]
                    first.add(name, gaps[0] / MILLISECOND)
                    process.add(name, (heard[0].begin - run.begun) / MILLISECOND)
                    if len(gaps) == 10:
                        tenth.add(name, gaps[-1] / MILLISECOND)
                    if kind in EXACT_LENGTH:
                        for play, sound in zip(run.plays, heard):
                            outcome.add(name, (play.outcome - sound.end) / MILLISECOND)
        first.unable = stage.unable(kind)
        report.show(f"Start and end, {kind.upper()}", *tables, picture=first)


def sound_of(play, heard):
    for sound in heard:
        if sound.begin >= play.start:
            return sound
    raise Failure("nothing was heard")


def loop(stage, report):
    """From the last frame of a pass to the first of the next, and what of a pass is not heard."""
    seconds = 0.5
    item = stage.items.wav(seconds)
    for kind, options in (("can pause", ()), ("cannot pause", ("--no-pause",))):
        word = kind.replace(" ", "-")
        turn = Table(f"loop-{word}", "last sound of a pass to first of the next", "ms", "bare-qt")
        lost = Table(f"loop-lost-{word}", "left out of a pass", "ms", None)
        card = Card(stage, ("default",), 1, *options, record=True)
        for _ in range(stage.few):
            for name in ("bare-glib", "bare-qt", "kova"):
                heard = passes(stage, name, card, item)
                for before, after in zip(heard, heard[1:]):
                    turn.add(name, (after.begin - before.end) / MILLISECOND)
                    lost.add(name, (seconds - after.seconds) * 1000)
        report.show(f"Turn of a loop on a card that {kind}", turn, lost)


def passes(stage, name, card, item, count=5):
    """The first passes of a loop, as they were heard."""
    process, _ = stage.launch(name, card, "loop", item, 1)
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
            raise Failure(f"{process.args} has ended: {process.stderr.read()}")
        time.sleep(0.002)


def instructions(stage, report):
    """What a process executes for one second of sound, and for each further player."""
    unit = "million instructions"
    whole = Table("instructions", "whole process", unit, "bare-qt")
    loading = Table("instructions-loading", "of these in the dynamic linker", unit, "bare-qt")
    further = Table("instructions-further", "each further player", unit, "bare-qt")
    for name, trace in with_trace(stage.contenders):
        label = name + "+trace" if trace else name
        with stage.excused(label):
            # Once: it varies by less than a hundredth.
            one, each = count_instructions(stage, name, trace)
            whole.add(label, one.all / 1e6)
            loading.add(label, one.loading / 1e6)
            further.add(label, each / 1e6)
    report.show("Instructions for one second of WAV", whole, loading, further, picture=whole)


def with_trace(names):
    """Each contender, and this library once more with all of its log."""
    for name in names:
        yield name, False
        if name == "kova":
            yield name, True


def count_instructions(stage, name, trace=False, more=5):
    """Of a process with one player, and of each further player in it."""
    item = stage.items.wav(1)
    one = stage.instructions(name, "sequence", item, 1, trace)
    longer = stage.instructions(name, "sequence", item, 1 + more, trace)
    return one, (longer.all - one.all) / more


def cpu(stage, report):
    """Processor time for each second of sound, beyond that of the start."""
    tables = []
    unable = {}
    for kind, item in stage.items.formats(6).items():
        table = Table(f"cpu-{kind}", kind.upper(), "ms", "bare-qt")
        names = stage.able(kind)
        for _ in range(stage.some):
            base, whole = (at_once(stage, names, it) for it in (stage.items.formats(1)[kind], item))
            for name in (name for name in names if name in base and name in whole):
                table.add(name, (whole[name].cpu - base[name].cpu) / 5 * 1000)
        tables.append(table)
        unable |= stage.unable(kind)
    tables[0].unable = unable
    report.show("Processor time for a second of sound", *tables, picture=tables[0])


def at_once(stage, names, item):
    """All of them play at the same time, each on a card of its own: none is favoured, and it takes
    no longer than one of them."""
    started = {
        name: stage.launch(name, Card(stage, folder=f"cards-{name}"), "sequence", item, 1)
        for name in names
    }
    runs = {}
    for name, process in started.items():
        with stage.excused(name):
            runs[name] = stage.finish(*process)
    return runs


HELD = {"heap": "KiB", "resident": "KiB", "threads": "", "descriptors": ""}


def held(stage, report):
    """What each further player holds, idle and while it plays."""
    for mode, few, many in (("idle", 1, 101), ("playing", 1, 9)):
        need = "card" if mode == "playing" else None
        tables = {
            what: Table(f"{mode}-{what}", what, unit, "bare-qt") for what, unit in HELD.items()
        }
        for _ in range(stage.few):
            for name in stage.able(need):
                with stage.excused(name):
                    usage = further_player(stage, name, mode, few, many)
                    for what, table in tables.items():
                        table.add(name, usage[what] / (1024 if table.unit == "KiB" else 1))
        tables["heap"].unable = stage.unable(need)
        report.show(f"Each further player, {mode}", *tables.values(), picture=tables["resident"])


def further_player(stage, name, mode, few, many):
    """What one more player of a process costs, from the difference of two numbers of them."""
    if mode == "idle":
        low, high = stage.run(name, Card(stage), mode, stage.items.wav(1), many).held
    else:
        low, high = (while_playing(stage, name, count) for count in (few, many))
    return {what: (getattr(high, what) - getattr(low, what)) / (many - few) for what in HELD}


def while_playing(stage, name, count):
    """What a process holds when all of its players are heard."""
    card = Card(stage, cards(count))
    process, begun = stage.launch(name, card, "playing", stage.items.wav(6), count)
    wait_until(lambda: all(card.times("first-frame", one) for one in card.names), process)
    process.stdin.write("\n")
    process.stdin.flush()
    return stage.finish(process, begun).held[0]


def cards(count):
    return tuple(f"card{number + 1}" for number in range(count))


TOGETHER = (1, 2, 4, 8, 16, 32, 64)


def together(stage, report):
    """1, 2, 4 ... 64 players at once: processor time, memory, start."""
    graphs = {
        "together-cpu": ("processor time of the process", "ms"),
        "together-memory": ("peak of the process", "MiB"),
        "together-start": ("start to first frame", "ms"),
    }
    curves = {graph: {} for graph in graphs}
    item = stage.items.wav(1)
    for count in TOGETHER:
        tables = {
            graph: Table(f"{graph}-{count}", title, unit, "bare-qt")
            for graph, (title, unit) in graphs.items()
        }
        tables["together-cpu"].unable = stage.unable("card")
        card = Card(stage, cards(count))
        for _ in range(stage.few):
            for name in stage.able("card"):
                with stage.excused(name):
                    run = stage.run(name, card, "together", item, count)
                    tables["together-cpu"].add(name, run.cpu * 1000)
                    tables["together-memory"].add(name, run.counted["peak"][0] / MEBIBYTE)
                    for play, one in zip(run.plays, card.names):
                        begun = first_frame(card, one)
                        tables["together-start"].add(name, (begun - play.start) / MILLISECOND)
        # The page shows the ends of the curves; between them there are the pictures.
        tell = report.show if count in (min(TOGETHER), max(TOGETHER)) else report.tell
        tell(f"{count} at once, one second of WAV each", *tables.values())
        for graph, table in tables.items():
            for name in table.values:
                curves[graph].setdefault(name, {})[count] = table.median(name)
    for graph, (title, unit) in graphs.items():
        report.draw_lines(graph, title, "players at once", unit, curves[graph])
    show_exponents(report, graphs, curves)


def first_frame(card, name):
    """When a card began to play; every contender opens it for the sound alone here."""
    times = card.times("first-frame", name)
    if not times:
        raise Failure(f"nothing was heard of {name}")
    return times[0]


def show_exponents(report, graphs, curves):
    """How each curve grows: 1 is in proportion to the number of players, 0 is not at all."""
    tables = []
    for graph, (title, _) in graphs.items():
        table = Table(f"{graph}-exponent", title, "exponent", None)
        for name, points in curves[graph].items():
            table.add(name, exponent(points))
        tables.append(table)
    report.show("Growth with the number of players", *tables)


def exponent(points):
    """The slope of the straight line that comes closest to the points, both ways logarithmic."""
    xs, ys = ([math.log(value) for value in values] for values in (points, points.values()))
    middle_x, middle_y = sum(xs) / len(xs), sum(ys) / len(ys)
    across = sum((x - middle_x) * (y - middle_y) for x, y in zip(xs, ys))
    return across / sum((x - middle_x) ** 2 for x in xs)


SMALL_ARRAY = 32  # MiB, large enough for as many chunks at once as a large one


def data(stage, report):
    """What a player of bytes in memory copies, and holds beside them."""
    card = Card(stage, ("default",), 1000, "--starve", "wait")
    copies = Table("data-copies", "copied", "times", None)
    chunks = Table("data-chunks", "handed on", "chunks", None)
    for who in ("unshared", "shared"):
        for size in (1, 4, 16):
            counted = stage.probe(card, "data", "default", size * MEBIBYTE, who)
            copies.add(f"{size} MiB, {who}", counted["copies"][0])
            chunks.add(f"{size} MiB, {who}", counted["chunks"][0])
    report.show("An array of a data player", copies, chunks)
    report.say(
        f"Beside an array of 256 MiB a process holds {beside_large_array(stage) / MEBIBYTE:.2f} MiB "
        f"more than beside one of {SMALL_ARRAY} MiB."
    )


def beside_large_array(stage, size=256):
    """How much more than the array itself a process holds at most, compared to a small array."""
    card = Card(stage, ("default",), 1000, "--starve", "wait")
    peaks = {SMALL_ARRAY: [], size: []}
    for _ in range(3):
        for mebibytes, beside in peaks.items():
            counted = stage.probe(card, "data", "default", mebibytes * MEBIBYTE, "unshared")
            beside.append(counted["peak"][0] - mebibytes * MEBIBYTE)
    # Threads take more memory in one run than in another; what an array costs is in all of them.
    return min(peaks[size]) - min(peaks[SMALL_ARRAY])


STREAMS = ("fdsrc-stream", "kova-stream")


def stream(stage, report):
    """Sound from a named pipe, beside GStreamer's own reader in the same pipeline."""
    stream_in_time(stage, report)
    stream_rate(stage, report)


def stream_in_time(stage, report):
    floor = STREAMS[0]
    spent = Table("stream-cpu", "processor time for a MiB", "ms", floor)
    waits = Table("stream-waits", "waits of threads for a MiB", "waits", floor)
    work = Table("stream-work", "a block of 4096 bytes", "thousand instructions", floor)
    small, large = stage.items.wav(1), stage.items.wav(11)
    size = large.stat().st_size - small.stat().st_size
    card = Card(stage)
    for _ in range(stage.few):
        for name in STREAMS:
            brief, whole = (stage.run_stream(name, card, item) for item in (small, large))
            spent.add(name, (whole.cpu - brief.cpu) * 1000 / (size / MEBIBYTE))
            waits.add(name, (whole.usage.ru_nvcsw - brief.usage.ru_nvcsw) / (size / MEBIBYTE))
            brief, whole = (stage.stream_instructions(name, item).all for item in (small, large))
            work.add(name, (whole - brief) / (size / 4096) / 1000)
    report.show("A pipe, in real time", spent, waits, work, picture=work)


def stream_rate(stage, report):
    """On a card that plays faster than anybody can write. What it does not get in time are underruns:
    it must not wait for its client, as it would look at each of the client's threads meanwhile."""
    floor = STREAMS[0]
    item = stage.items.wav(60)
    size = item.stat().st_size / MEBIBYTE
    for speed in (20, 400):
        rate = Table(f"stream-rate-{speed}", "from the pipe to the card", "MiB a second", floor)
        waits = Table(f"stream-rate-waits-{speed}", "waits of threads for a MiB", "waits", floor)
        spent = Table(f"stream-rate-cpu-{speed}", "processor time for a MiB", "ms", floor)
        xruns = Table(f"stream-xruns-{speed}", "underruns of the card", "", None)
        card = Card(stage, ("default",), speed)
        for _ in range(stage.rounds):
            for name in STREAMS:
                run = stage.run_stream(name, card, item)
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
    "held": held,
    "together": together,
    "data": data,
    "stream": stream,
}
