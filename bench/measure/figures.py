"""The figures. Contenders take turns, so that what the machine does besides meets all of them."""
import time

from measure.stage import Card, Failure
from measure.tables import Table

MILLISECOND = 1e6  # nanoseconds
PLAYS = 10
SHORT = 0.5  # seconds

# The formats that do not add silence, of which every decoder would leave another part.
EXACT_LENGTH = ("wav", "ogg")


def starts(stage, report):
    """How long until sound is heard, and until its end is known."""
    for kind, item in stage.items.formats(SHORT).items():
        first = Table(f"first-{kind}", f"{kind}: start to first frame, first player", "ms")
        tenth = Table(f"tenth-{kind}", f"{kind}: start to first frame, tenth player", "ms")
        process = Table(f"process-{kind}", f"{kind}: start of the process to first frame", "ms")
        outcome = Table(f"outcome-{kind}", f"{kind}: last frame played to outcome", "ms")
        card = Card(stage)
        for _ in range(stage.rounds):
            for name in stage.contenders:
                run = stage.run(name, card, "sequence", item, PLAYS)
                frames = card.times("first-frame")
                heard = [next(time for time in frames if time >= p.start) for p in run.plays]
                first.add(name, (heard[0] - run.plays[0].start) / MILLISECOND)
                tenth.add(name, (heard[-1] - run.plays[-1].start) / MILLISECOND)
                process.add(name, (heard[0] - run.begun) / MILLISECOND)
                if kind in EXACT_LENGTH:
                    for play, frame in zip(run.plays, heard):
                        last = frame + SHORT * 1000 * MILLISECOND
                        outcome.add(name, (play.outcome - last) / MILLISECOND)
        for table in (first, tenth, process, outcome):
            report.show(table)


def instructions(stage, report):
    """What a process executes for one second of sound, and for each further player."""
    unit = "million instructions"
    whole = Table("instructions", "whole process, 1 s WAV", unit, "bare-qt")
    loading = Table("instructions-loading", "of these, in the dynamic linker", unit, "bare-qt")
    further = Table("instructions-further", "each further player, 1 s WAV", unit, "bare-qt")
    for _ in range(min(3, stage.rounds)):
        for name, trace in with_trace(stage.contenders):
            one, each = count_instructions(stage, name, trace)
            label = name + "+trace" if trace else name
            whole.add(label, one.all / 1e6)
            loading.add(label, one.loading / 1e6)
            further.add(label, each / 1e6)
    for table in (whole, loading, further):
        report.show(table)


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
    for kind, item in stage.items.formats(6).items():
        table = Table(f"cpu-{kind}", f"{kind}: processor time per second of sound", "ms")
        brief = stage.items.formats(1)[kind]
        card = Card(stage)
        for _ in range(stage.rounds):
            for name in stage.contenders:
                base = stage.run(name, card, "sequence", brief, 1)
                whole = stage.run(name, card, "sequence", item, 1)
                table.add(name, (whole.cpu - base.cpu) / 5 * 1000)
        report.show(table)


HELD = {"heap": "KiB", "resident": "KiB", "threads": "threads", "descriptors": "descriptors"}


def held(stage, report):
    """What each further player holds, idle and while it plays."""
    for mode, few, many in (("idle", 1, 101), ("playing", 1, 9)):
        tables = {
            what: Table(f"{mode}-{what}", f"each further {mode} player: {what}", unit)
            for what, unit in HELD.items()
        }
        for _ in range(min(3, stage.rounds)):
            for name in chooses_card(stage.contenders):
                usage = further_player(stage, name, mode, few, many)
                for what, table in tables.items():
                    table.add(name, usage[what] / (1024 if table.unit == "KiB" else 1))
        for table in tables.values():
            report.show(table)


def chooses_card(names):
    """Qt Multimedia plays on the default device only, and so cannot be told apart there."""
    return [name for name in names if name != "qmediaplayer"]


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


def wait_until(condition, process):
    while not condition():
        if process.poll() is not None:
            raise Failure(f"{process.args} has ended: {process.stderr.read()}")
        time.sleep(0.002)


def together(stage, report):
    """1, 2, 4 ... 64 players at once: processor time, memory, start."""
    graphs = {
        "together-cpu": ("processor time for each player's second of sound", "ms"),
        "together-memory": ("peak of the process", "MiB"),
        "together-start": ("start to first frame", "ms"),
    }
    curves = {graph: {} for graph in graphs}
    item = stage.items.wav(1)
    for count in (1, 2, 4, 8, 16, 32, 64):
        tables = {g: Table(f"{g}-{count}", f"{count} at once: {t}", u) for g, (t, u) in graphs.items()}
        card = Card(stage, cards(count))
        for _ in range(min(3, stage.rounds)):
            for name in chooses_card(stage.contenders):
                run = stage.run(name, card, "together", item, count)
                tables["together-cpu"].add(name, run.cpu / count * 1000)
                tables["together-memory"].add(name, run.usage.ru_maxrss / 1024)
                for play, one in zip(run.plays, card.names):
                    heard = card.times("first-frame", one)[0]
                    tables["together-start"].add(name, (heard - play.start) / MILLISECOND)
        for graph, table in tables.items():
            report.show(table)
            for name, values in table.values.items():
                curves[graph].setdefault(name, {})[count] = values
    for graph, (title, unit) in graphs.items():
        report.draw_lines(graph, title, "players at once", unit, curves[graph])


MEBIBYTE = 1 << 20
SMALL_ARRAY = 32  # MiB, large enough for as many chunks at once as a large one


def data(stage, report):
    """What a player of bytes in memory copies, and holds beside them."""
    card = Card(stage, ("default",), 1000, "--starve", "wait")
    for who in ("unshared", "shared"):
        for size in (1, 4, 16):
            counted, _ = stage.probe(card, "data", "default", size * MEBIBYTE, who)
            (copies,), (chunks,) = counted["copies"], counted["chunks"]
            print(f"{who} array of {size} MiB: copied {copies} times, in {chunks} chunks")
    print(f"beside an array of 256 MiB: {beside_large_array(stage) / MEBIBYTE:.2f} MiB more "
          f"than beside one of {SMALL_ARRAY} MiB\n", flush=True)


def beside_large_array(stage, size=256):
    """How much more than the array itself a process holds at most, compared to a small array."""
    card = Card(stage, ("default",), 1000, "--starve", "wait")
    peaks = {SMALL_ARRAY: [], size: []}
    for _ in range(3):
        for mebibytes, beside in peaks.items():
            _, peak = stage.probe(card, "data", "default", mebibytes * MEBIBYTE, "unshared")
            beside.append(peak - mebibytes * MEBIBYTE)
    # Threads take more memory in one run than in another; what an array costs is in all of them.
    return min(peaks[size]) - min(peaks[SMALL_ARRAY])


def stream(stage, report):
    """Sound from a named pipe, beside GStreamer's own reader."""
    names = ("fdsrc-stream", "kova-stream")
    floor = names[0]
    spent = Table("stream-cpu", "processor time for each MiB from a pipe", "ms", floor)
    waits = Table("stream-waits", "times that a thread waits, for each MiB", "waits", floor)
    work = Table("stream-work", "each block of 4096 bytes", "thousand instructions", floor)
    small, large = stage.items.wav(1), stage.items.wav(11)
    size = large.stat().st_size - small.stat().st_size
    # In real time: a card that is faster than its client looks at each of the client's threads,
    # which would be measured too.
    card = Card(stage)
    for _ in range(stage.rounds):
        for name in names:
            brief, whole = (stage.run_stream(name, card, item) for item in (small, large))
            spent.add(name, (whole.cpu - brief.cpu) * 1000 / (size / MEBIBYTE))
            waits.add(name, (whole.usage.ru_nvcsw - brief.usage.ru_nvcsw) / (size / MEBIBYTE))
    for _ in range(min(3, stage.rounds)):
        for name in names:
            brief, whole = (stage.stream_instructions(name, item).all for item in (small, large))
            work.add(name, (whole - brief) / (size / 4096) / 1000)
    for table in (spent, waits, work):
        report.show(table)


def loop(stage, report):
    """From the last frame of a pass to the first of the next."""
    item = stage.items.wav(SHORT)
    for kind, options in (("pausing", ()), ("plain", ("--no-pause",))):
        table = Table(f"loop-{kind}", f"turn of a loop, a {kind} card", "ms")
        card = Card(stage, ("default",), 1, *options)
        for _ in range(stage.rounds):
            for name in ("bare-glib", "bare-qt", "kova"):
                for gap in turns(stage, name, card, item):
                    table.add(name, gap)
        report.show(table)


def turns(stage, name, card, item, passes=5):
    """How much later than its length each pass of an item is followed by the next."""
    process, _ = stage.launch(name, card, "loop", item, 1)
    began = lambda: sorted(card.times("first-frame") + card.times("resume"))  # noqa: E731
    wait_until(lambda: len(began()) > passes, process)
    process.kill()
    process.communicate()
    times = began()[: passes + 1]
    return [(b - a) / MILLISECOND - SHORT * 1000 for a, b in zip(times, times[1:])]


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
