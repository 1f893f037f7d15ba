"""What does not depend on how busy or how fast the machine is, against limits."""
from measure.figures import MEBIBYTE, beside_large_array, count_instructions
from measure.stage import Card

# How many times what a pipeline written by hand in a Qt application executes.
MOST_INSTRUCTIONS = 1.05
MOST_BESIDE_ARRAY = 1 * MEBIBYTE


class Judgement:
    def __init__(self):
        self.broken = 0

    def at_most(self, what, value, limit):
        self.line(what, value <= limit, f"{value:.3g}, at most {limit:g}")

    def equal(self, what, value, right):
        self.line(what, value == right, f"{value}, must be {right}")

    def line(self, what, good, text):
        self.broken += not good
        print(f"{'ok  ' if good else 'BAD '} {what}: {text}", flush=True)


def judge(stage):
    """0 when every limit is kept, otherwise 1: an exit status."""
    judgement = Judgement()
    judge_instructions(stage, judgement)
    judge_objects(stage, judgement)
    judge_bytes(stage, judgement)
    return 1 if judgement.broken else 0


def judge_instructions(stage, judgement):
    ours, our_further = count_instructions(stage, "kova")
    bare, bare_further = count_instructions(stage, "bare-qt")
    print(f"     whole process, with loading: {ours.all / bare.all:.3f} times a bare pipeline's")
    judgement.at_most(
        "instructions of the process without the dynamic linker's",
        (ours.all - ours.loading) / (bare.all - bare.loading),
        MOST_INSTRUCTIONS,
    )
    judgement.at_most(
        "instructions of a further player", our_further / bare_further, MOST_INSTRUCTIONS
    )


def judge_objects(stage, judgement):
    card = Card(stage, ("default",), 20)
    made = {}
    for who in ("bare", "kova"):
        counted = stage.probe(card, "objects", "default", stage.items.wav(1), who)
        made[who], left = counted["objects"]
    judgement.equal("GStreamer objects made for a player", made["kova"], made["bare"])
    judgement.at_most("GStreamer objects left by a player", left, 0)


def judge_bytes(stage, judgement):
    card = Card(stage, ("default",), 1000, "--starve", "wait")
    for who, right in (("unshared", 0), ("shared", 1)):
        for size in (1, 16):
            counted = stage.probe(card, "data", "default", size * MEBIBYTE, who)
            judgement.equal(f"copies of {size} MiB, array {who}", counted["copies"][0], right)
    judgement.at_most(
        "MiB beside an array of 256 MiB",
        beside_large_array(stage) / MEBIBYTE,
        MOST_BESIDE_ARRAY / MEBIBYTE,
    )
