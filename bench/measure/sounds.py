"""When sound was heard: a card that has been opened, or started, may still play silence."""
import array
from dataclasses import dataclass

# In parts of the full scale. Decoders leave less than this before the sound.
AUDIBLE = 0.001

# Seconds of silence that divide one sound from the next.
PAUSE = 0.005

# Of the formats in which a card may be set up: the type of a sample, and its full scale.
SAMPLES = {"S16_LE": ("h", 1 << 15), "S32_LE": ("i", 1 << 31), "FLOAT_LE": ("f", 1.0)}


@dataclass
class Sound:
    """Monotonic nanoseconds of its first frame and of the end of its last one; how long it is."""

    begin: int
    end: int
    seconds: float


def sounds(events, record):
    """Those that a card played, from what it wrote down and recorded."""
    heard = []
    before = 0  # frames that were recorded before the card was opened
    for session in sessions(events):
        form, rate, channels, *_ = next(rest for _, what, *rest in session if what == "configure")
        kind, scale = SAMPLES[form]
        rate = int(rate)
        frames = samples(record, kind)[before * int(channels) :: int(channels)]
        if session[-1][1] == "close":
            frames = frames[: int(session[-1][2])]
        clock = Clock(session, rate)
        for first, last in audible_runs(frames, AUDIBLE * scale, PAUSE * rate):
            length = last + 1 - first
            heard.append(Sound(clock.time(first), clock.time(last), length / rate))
        before += len(frames)
    return heard


def sessions(events):
    """The events from each opening of the card to its closing, or to the end of the process. Who only
    looks what a card can do does not set it up."""
    found = []
    for event in events:
        if event[1] == "open":
            found.append([])
        found[-1].append(event)
    return [session for session in found if any(what == "configure" for _, what, *_ in session)]


def samples(record, kind):
    """Of a WAV file that has nothing behind them."""
    content = record.read_bytes()
    data = content[content.index(b"data") + 8 :]
    values = array.array(kind)
    values.frombytes(data[: len(data) // values.itemsize * values.itemsize])
    return values


def audible_runs(values, limit, pause):
    """The first and the last frame of each sound."""
    first = last = None
    for frame, value in enumerate(values):
        if abs(value) <= limit:
            continue
        if first is not None and frame - last > pause:
            yield first, last
            first = None
        first = frame if first is None else first
        last = frame
    if first is not None:
        yield first, last


class Clock:
    """When which frame was played: a card stands still while it is paused or stopped."""

    def __init__(self, session, rate):
        self.rate = rate
        self.runs = []  # the time of each start, and the frame that was played then
        frame = 0
        for time, what, *details in session:
            if what in ("first-frame", "resume"):
                self.runs.append((time, frame))
            elif what in ("pause", "stop") and self.runs:
                begun, first = self.runs[-1]
                frame = max(frame, first + (time - begun) * rate // 10**9)
            elif what == "xrun":
                frame = int(details[0])

    def time(self, frame):
        begun, first = next(run for run in reversed(self.runs) if run[1] <= frame)
        return begun + (frame - first) * 10**9 // self.rate
