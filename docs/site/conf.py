"""The site of the documentation, which Sphinx makes from the Markdown pages of the tree. CMake sets the
environment variables KOVA_VERSION, KOVA_API (Doxygen's XML) and KOVA_PICTURES (of pipelines)."""

import os
import pathlib
import re
import subprocess

TREE = pathlib.Path(__file__).parents[2]

project = "kova simple player"
release = version = os.environ["KOVA_VERSION"]
html_title = project
author = copyright = "kova developers"

extensions = ["myst_parser", "breathe"]
root_doc = "README"
include_patterns = ["*.md", "docs/**"]
myst_heading_anchors = 4
suppress_warnings = ["myst.header"]
breathe_projects = {"kova": os.environ["KOVA_API"]}
breathe_default_project = "kova"
highlight_language = "none"
smartquotes = False  # texts of reasons are quoted exactly

html_theme = "furo"
html_extra_path = [os.environ["KOVA_PICTURES"]]
html_copy_source = html_show_sourcelink = html_use_index = False
html_additional_pages = {"index": "front.html"}
templates_path = [str(TREE / "docs" / "site")]

NAVIGATION = """
```{toctree}
:hidden:
:caption: Use the library

Overview <self>
docs/getting-started
docs/cookbook
docs/outcomes
docs/limitations
docs/porting
docs/releases
docs/log-reference
```
```{toctree}
:hidden:
:caption: Reference

docs/site/api
docs/site/examples
docs/site/kova-play
docs/site/kova-registry
docs/site/virtualcard-config
```
```{toctree}
:hidden:
:caption: Change the library

docs/developer-guide
docs/testing
docs/binary-interface
Benchmarks <docs/performance>
CONTRIBUTING
CHANGELOG
docs/README
```
"""


def manual_page(match):
    """The content of a manual page as HTML, without its head and foot."""
    command = ["mandoc", "-Thtml", "-Ofragment", str(TREE / match[1])]
    page = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    body = page[page.index("<section") : page.rindex("</section>") + len("</section>")]
    body = re.sub(r"<a class=\"permalink\"[^>]*>(.*?)</a>", r"\1", body, flags=re.DOTALL)
    body = re.sub(r"(</?h)([12])", lambda tag: tag[1] + str(int(tag[2]) + 1), body)
    return f"```{{raw}} html\n{body}\n```"


def examples():
    """The files of the examples as sections of their page."""
    return "".join(
        f"\n## {file.name}\n\n```{{literalinclude}} /examples/{file.name}\n"
        f":language: {'cmake' if file.suffix == '.txt' else 'cpp'}\n```\n"
        for file in sorted((TREE / "examples").iterdir()))


def adapt_page(app, docname, source):
    """Replaces "<!-- site: TEXT -->" by TEXT and "@FILE@" by a manual page. Adds the navigation to the
    first page, and the files to the page of examples."""
    text = re.sub(r"<!-- site: (.*?) -->", r"\1", source[0])
    source[0] = re.sub(r"^@(.*)@$", manual_page, text, flags=re.MULTILINE)
    if docname == root_doc:
        source[0] += NAVIGATION
    if docname == "docs/site/examples":
        source[0] += examples()


def setup(app):
    app.connect("source-read", adapt_page)
