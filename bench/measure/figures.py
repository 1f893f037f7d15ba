"""The figures. Contenders take turns, so that what the machine does besides meets all of them."""
from measure.stage import Card
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
    one = Table("instructions", "whole process, 1 s WAV", unit, "bare-qt")
    further = Table("instructions-further", "each further player, 1 s WAV", unit, "bare-qt")
    for _ in range(min(3, stage.rounds)):
        for name, trace in with_trace(stage.contenders):
            whole, each = count_instructions(stage, name, trace)
            label = name + "+trace" if trace else name
            one.add(label, whole / 1e6)
            further.add(label, each / 1e6)
    report.show(one)
    report.show(further)


def with_trace(names):
    """Each contender, and this library once more with all of its log."""
    for name in names:
        yield name, False
        if name == "kova":
            yield name, True


def count_instructions(stage, name, trace=False, more=5):
    """Of a process with one player, and of each further player in it."""
    item = stage.items.wav(1)
    whole = stage.instructions(name, "sequence", item, 1, trace)
    longer = stage.instructions(name, "sequence", item, 1 + more, trace)
    return whole, (longer - whole) / more


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


ALL = {
    "starts": starts,
    "instructions": instructions,
    "cpu": cpu,
}
