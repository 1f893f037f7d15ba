"""What was measured: tables of medians on the screen, raw values and plots in files."""
import statistics
import subprocess


def quartiles(values):
    """The lower quartile, the median and the upper quartile."""
    if len(values) < 2:
        return values[0], values[0], values[0]
    return tuple(statistics.quantiles(values, n=4, method="inclusive"))


def number(value):
    """Three digits that count, or all of a large whole number."""
    if abs(value) >= 1000 or value == int(value):
        return f"{value:,.0f}"
    return f"{value:.3g}"


class Table:
    """One figure: the values of each contender. Ratios are told against one of them, the floor."""

    def __init__(self, name, title, unit, floor="bare-glib"):
        self.name = name
        self.title = title
        self.unit = unit
        self.floor = floor
        self.values = {}

    def add(self, contender, value):
        self.values.setdefault(contender, []).append(value)

    def median(self, contender):
        return quartiles(self.values[contender])[1]

    def ratio(self, contender):
        """How many times the floor's median, or nothing if that cannot be told."""
        base = self.median(self.floor) if self.floor in self.values else 0
        return self.median(contender) / base if base else None

    def text(self):
        row = "{:<16}{:>14}{:>26}{:>16}".format
        lines = [f"{self.title}, {self.unit}", row("", "median", "quartiles", f"x {self.floor}")]
        for contender, values in self.values.items():
            low, middle, high = (number(value) for value in quartiles(values))
            ratio = self.ratio(contender)
            ratio = "" if ratio is None else f"{ratio:.3f}"
            lines.append(row(contender, middle, f"{low} ... {high}", ratio))
        return "\n".join(lines) + "\n"


class Report:
    """Prints tables, and keeps values and plots in a folder."""

    def __init__(self, folder):
        self.folder = folder

    def show(self, table):
        if not table.values:
            return
        print(table.text(), flush=True)
        rows = [f"{who}\t{value}\n" for who, values in table.values.items() for value in values]
        (self.folder / f"{table.name}.tsv").write_text("".join(rows))
        self.draw_bars(table)

    def draw_bars(self, table):
        rows = []
        for position, (who, values) in enumerate(table.values.items()):
            low, middle, high = quartiles(values)
            rows.append(f'{position} {middle} {low} {high} "{who}"')
        data = "\n".join(["$rows << EOD", *rows, "EOD"])
        self.gnuplot(
            table.name,
            f"""{data}
set title "{table.title}"
set ylabel "{table.unit}"
set yrange [0:*]
set xrange [-0.6:{len(rows) - 0.4}]
set boxwidth 0.6
set style fill solid 0.4
plot $rows using 1:2:xtic(5) with boxes notitle, \\
     $rows using 1:2:3:4 with yerrorbars pointtype 0 notitle
""",
        )

    def draw_lines(self, name, title, xlabel, unit, curves):
        """Medians over a number that doubles: {contender: {number: values}}."""
        blocks, plots = [], []
        for index, (who, points) in enumerate(curves.items()):
            rows = [f"{x} {quartiles(values)[1]}" for x, values in sorted(points.items())]
            blocks += [f"$curve{index} << EOD", *rows, "EOD"]
            plots.append(f'$curve{index} using 1:2 with linespoints title "{who}"')
        data = "\n".join(blocks)
        self.gnuplot(
            name,
            f"""{data}
set title "{title}"
set xlabel "{xlabel}"
set ylabel "{unit}"
set logscale x 2
set yrange [0:*]
set key left top
plot {', '.join(plots)}
""",
        )

    def gnuplot(self, name, commands):
        output = self.folder / f"{name}.svg"
        setup = f'set terminal svg size 800,500 background "white"\nset output "{output}"\n'
        subprocess.run(["gnuplot"], input=setup + commands, text=True, check=True)
