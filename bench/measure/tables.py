"""Reports: tables of medians on the terminal and in Markdown, raw values and plots in files."""
import statistics
import subprocess


def quartiles(values):
    """The lower quartile, the median and the upper quartile."""
    if len(values) < 2:
        return values[0], values[0], values[0]
    return tuple(statistics.quantiles(values, n=4, method="inclusive"))


def number(value):
    """Three significant digits, or all digits of a large number."""
    if abs(value) >= 1000 or value == int(value):
        return f"{value:,.0f}"
    return f"{value:.3g}"


class Table:
    """The values of each contender and their ratios to one of them, the baseline. A contender that
    cannot take part has no row; it is listed below the table with the reason."""

    def __init__(self, name, title, unit, baseline="bare-glib"):
        self.name = name
        self.title = title
        self.unit = unit
        self.baseline = baseline
        self.values = {}
        self.unable = {}

    @property
    def heading(self):
        return f"{self.title}, {self.unit}" if self.unit else self.title

    def add(self, contender, value):
        self.values.setdefault(contender, []).append(value)

    def median(self, contender):
        return quartiles(self.values[contender])[1]

    def ratio(self, contender):
        """The ratio to the median of the baseline, or None if there is no baseline."""
        base = self.median(self.baseline) if self.baseline in self.values else 0
        return self.median(contender) / base if base else None

    def text(self, title):
        row = "{:<16}{:>14}{:>26}{:>16}".format
        against = f"x {self.baseline}" if self.baseline else ""
        lines = [f"{title}: {self.heading}", row("", "median", "quartiles", against)]
        for contender, values in self.values.items():
            low, middle, high = (number(value) for value in quartiles(values))
            ratio = self.ratio(contender)
            ratio = "" if ratio is None else f"{ratio:.3f}"
            lines.append(row(contender, middle, f"{low} ... {high}", ratio))
        lines += [f"{contender}: {why}" for contender, why in self.unable.items()]
        return "\n".join(lines) + "\n"

    def cell(self, contender):
        """The median, its quartiles and the ratio, for a column of a Markdown table."""
        if contender not in self.values:
            return "–"
        low, middle, high = (number(value) for value in quartiles(self.values[contender]))
        spread = f" ({low} … {high})" if low != high else ""
        ratio = self.ratio(contender)
        return f"{middle}{spread}" + ("" if ratio is None else f", {ratio:.2f} ×")


def markdown(title, tables):
    """One Markdown table of several tables of the same contenders."""
    contenders = list(dict.fromkeys(who for table in tables for who in table.values))
    unable = dict(pair for table in tables for pair in table.unable.items())
    rows = [["", *(table.heading for table in tables)], ["---"] * (len(tables) + 1)]
    rows += [[f"`{who}`", *(table.cell(who) for table in tables)] for who in contenders]
    lines = [f"### {title}", "", *("| " + " | ".join(row) + " |" for row in rows)]
    if unable:
        lines += ["", "Without a row: " + "; ".join(f"`{w}` {why}" for w, why in unable.items()) + "."]
    return "\n".join(lines) + "\n"


# The folder of the pictures, relative to the page.
PICTURES = "performance"


class Report:
    """Prints tables, writes values and plots into a folder, and collects the Markdown of the page."""

    def __init__(self, folder):
        self.folder = folder
        self.sections = []
        self.pictures = []

    def show(self, title, *tables, picture=None):
        """Reports tables that belong together, on the page too. One of them may have a picture."""
        tables = [table for table in tables if table.values]
        self.save(title, *tables)
        if tables:
            self.sections.append(markdown(title, tables))
        if picture in tables:
            self.add_picture(picture.name, f"{title}: {picture.title}")

    def save(self, title, *tables):
        """Prints tables and writes their values and plots into files."""
        for table in tables:
            print(table.text(title), flush=True)
            rows = [f"{who}\t{value}\n" for who, values in table.values.items() for value in values]
            (self.folder / f"{table.name}.tsv").write_text("".join(rows))
            self.draw_bars(title, table)

    def add_picture(self, name, title):
        self.pictures.append(name)
        self.sections.append(f"![{title}]({PICTURES}/{name}.svg)\n")

    def say(self, text):
        """Reports a result that is one sentence."""
        print(text + "\n", flush=True)
        self.sections.append(text + "\n")

    def draw_bars(self, title, table):
        rows = []
        for position, (who, values) in enumerate(table.values.items()):
            low, middle, high = quartiles(values)
            rows.append(f'{position} {middle} {low} {high} "{who}"')
        data = "\n".join(["$rows << EOD", *rows, "EOD"])
        medians = [table.median(who) for who in table.values]
        # A logarithmic scale if a linear one would hide the small bars.
        scale = "set logscale y" if 0 < 50 * min(medians) < max(medians) else "set yrange [*<0:*]"
        self.gnuplot(
            table.name,
            f"""{data}
set title "{title}: {table.title}"
set ylabel "{table.unit}"
{scale}
set xrange [-0.6:{len(rows) - 0.4}]
set style fill solid 0.4
set xtics rotate by 30 right
plot $rows using 1:2:3:4:(0.6):xtic(5) with boxerrorbars notitle
""",
        )

    def draw_lines(self, name, title, xlabel, unit, curves):
        """Curves with logarithmic axes: {contender: {x: y}}."""
        blocks, plots = [], []
        for index, (who, points) in enumerate(curves.items()):
            rows = [f"{x} {y}" for x, y in sorted(points.items())]
            blocks += [f"$curve{index} << EOD", *rows, "EOD"]
            plots.append(f'$curve{index} using 1:2 with linespoints title "{who}"')
        data = "\n".join(blocks)
        self.gnuplot(
            name,
            f"""{data}
set title "{title}"
set xlabel "{xlabel}"
set ylabel "{unit}"
set logscale xy 2
set key outside
plot {', '.join(plots)}
""",
        )
        self.add_picture(name, title)

    def gnuplot(self, name, commands):
        output = self.folder / f"{name}.svg"
        setup = f'set terminal svg size 720,400 background "white"\nset output "{output}"\n'
        subprocess.run(["gnuplot"], input=setup + commands, text=True, check=True)
