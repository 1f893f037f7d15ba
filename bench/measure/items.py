"""The sounds that are played: a chord with some noise, so that encoders have something to do."""
import array
import math
import random
import subprocess
import wave

RATE = 48000


class Items:
    """Makes each item once and keeps it in a folder."""

    def __init__(self, folder):
        self.folder = folder
        folder.mkdir(exist_ok=True)

    def wav(self, seconds):
        path = self.folder / f"{seconds}s.wav"
        if not path.exists():
            write_chord(path, round(seconds * RATE))
        return path

    def ogg(self, seconds):
        return self.encoded(seconds, "ogg", "oggenc --quiet -o {to} {wav}")

    def mp3(self, seconds):
        return self.encoded(seconds, "mp3", "lame --silent {wav} {to}")

    def encoded(self, seconds, suffix, command):
        path = self.folder / f"{seconds}s.{suffix}"
        if not path.exists():
            words = [w.format(wav=self.wav(seconds), to=path) for w in command.split()]
            subprocess.run(words, check=True)
        return path

    def formats(self, seconds):
        """One item in each format."""
        return {"wav": self.wav(seconds), "ogg": self.ogg(seconds), "mp3": self.mp3(seconds)}


def write_chord(path, frames):
    noise = random.Random(1)
    samples = array.array("h")
    for frame in range(frames):
        tones = sum(math.sin(frame * f * math.tau / RATE) for f in (440, 554.37, 659.26))
        value = round(6000 * tones + noise.uniform(-500, 500))
        samples.extend((value, value))
    with wave.open(str(path), "wb") as file:
        file.setparams((2, 2, RATE, 0, "NONE", None))
        file.writeframes(samples.tobytes())
