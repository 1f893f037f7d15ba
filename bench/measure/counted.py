"""Checks the counted results, which do not depend on the speed of the machine, against limits."""
from measure.measurements import MEBIBYTE, large_array_overhead, count_instructions
from measure.fixture import Card

# Ratio to a pipeline written by hand in a Qt application.
MOST_INSTRUCTIONS = 1.05
MOST_ARRAY_OVERHEAD = 1 * MEBIBYTE


class Verdict:
    def __init__(self):
        self.broken = 0

    def at_most(self, what, value, limit):
        self.line(what, value <= limit, f"{value:.3g}, at most {limit:g}")

    def equal(self, what, value, expected):
        self.line(what, value == expected, f"{value}, expected {expected}")

    def line(self, what, good, text):
        self.broken += not good
        print(f"{'ok  ' if good else 'BAD '} {what}: {text}", flush=True)


def check(fixture):
    """Returns an exit status: 0 if all results are within their limits, else 1."""
    verdict = Verdict()
    check_instructions(fixture, verdict)
    check_objects(fixture, verdict)
    check_bytes(fixture, verdict)
    return 1 if verdict.broken else 0


def check_instructions(fixture, verdict):
    (ours, our_further), (bare, bare_further) = fixture.in_parallel(
        lambda name: count_instructions(fixture, name), ("kova", "bare-qt")
    )
    print(f"     whole process, with the dynamic linker: {ours.all / bare.all:.3f} x bare-qt")
    verdict.at_most(
        "instructions of the process without the dynamic linker's",
        (ours.all - ours.loading) / (bare.all - bare.loading),
        MOST_INSTRUCTIONS,
    )
    verdict.at_most(
        "instructions of a further player", our_further / bare_further, MOST_INSTRUCTIONS
    )


def check_objects(fixture, verdict):
    card = Card(fixture, ("default",), 20)
    created = {}
    for who in ("bare", "kova"):
        counted = fixture.probe(card, "objects", "default", fixture.items.wav(1), who)
        created[who], left = counted["objects"]
    verdict.equal("GStreamer objects created for a player", created["kova"], created["bare"])
    verdict.at_most("GStreamer objects left by a player", left, 0)


def check_bytes(fixture, verdict):
    card = Card(fixture, ("default",), 1000, "--starve", "wait")
    for who, expected in (("unshared", 0), ("shared", 1)):
        for size in (1, 16):
            counted = fixture.probe(card, "data", "default", size * MEBIBYTE, who)
            verdict.equal(f"copies of {size} MiB, array {who}", counted["copies"][0], expected)
    verdict.at_most(
        "MiB in addition to an array of 256 MiB",
        large_array_overhead(fixture) / MEBIBYTE,
        MOST_ARRAY_OVERHEAD / MEBIBYTE,
    )
