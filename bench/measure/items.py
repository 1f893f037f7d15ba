"""The sounds that are played: a chord with some noise, so that encoders have something to do."""
import array
import math
import random
import subprocess
import wave

RATE = 48000
ENCODERS = {"ogg": "oggenc --quiet -o {to} {wav}", "mp3": "lame --silent {wav} {to}"}


class Items:
    """Makes each item once and keeps it in a folder, beside a moment of silence in each format."""

    def __init__(self, folder):
        self.folder = folder
        folder.mkdir(exist_ok=True)
        silence = folder / "silence.wav"
        if not silence.exists():
            write_wav(silence, array.array("h", bytes(4 * RATE // 1000)))
        self.encode(silence)

    def wav(self, seconds):
        path = self.folder / f"{seconds}s.wav"
        if not path.exists():
            write_wav(path, chord(round(seconds * RATE)))
        return path

    def formats(self, seconds):
        """One item in each format."""
        return self.encode(self.wav(seconds))

    def encode(self, wav):
        """The WAV file and its encoded variants, by format."""
        paths = {"wav": wav}
        for suffix, command in ENCODERS.items():
            paths[suffix] = wav.with_suffix(f".{suffix}")
            if not paths[suffix].exists():
                words = [w.format(wav=wav, to=paths[suffix]) for w in command.split()]
                subprocess.run(words, check=True)
        return paths


def chord(frames):
    noise = random.Random(1)
    samples = array.array("h")
    for frame in range(frames):
        tones = sum(math.sin(frame * f * math.tau / RATE) for f in (440, 554.37, 659.26))
        value = round(6000 * tones + noise.uniform(-500, 500))
        samples.extend((value, value))
    return samples


def write_wav(path, samples):
    with wave.open(str(path), "wb") as file:
        file.setparams((2, 2, RATE, 0, "NONE", None))
        file.writeframes(samples.tobytes())
