"""Finds the sounds that a card recorded, without the silence around them."""
import array
from dataclasses import dataclass

# As a part of full scale. Decoders produce less than this before the sound.
AUDIBLE = 0.001

# Seconds of silence that separate two sounds.
PAUSE = 0.005

# The type of a sample and its full scale, for each format of a card.
SAMPLES = {"S16_LE": ("h", 1 << 15), "S32_LE": ("i", 1 << 31), "FLOAT_LE": ("f", 1.0)}


@dataclass
class Sound:
    """Monotonic nanoseconds of the first frame and of the end of the last one, and the length."""

    begin: int
    end: int
    seconds: float


def sounds(events, record):
    """The sounds that a card played, from its log and its record."""
    found = []
    before = 0  # frames of earlier sessions
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
            found.append(Sound(clock.time(first), clock.time(last), length / rate))
        before += len(frames)
    return found


def sessions(events):
    """The events from each opening of the card to its closing, or to the end of the process.
    Sessions that only query the card, without a set-up, are left out."""
    found = []
    for event in events:
        if event[1] == "open":
            found.append([])
        found[-1].append(event)
    return [session for session in found if any(what == "configure" for _, what, *_ in session)]


def samples(record, kind):
    """The samples of a WAV file whose last chunk is the data."""
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
    """Converts frames to times. A card does not advance while it is paused or stopped."""

    def __init__(self, session, rate):
        self.rate = rate
        self.runs = []  # the time of each start and the frame at which it continues
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
