# Doxygen's view of a Markdown file of the tree. The files are written for plain reading and for
# repository viewers; Doxygen 1.9 wants each heading to have a name of its own before another page
# can refer to it.
#
#   ## State tables                        -> ## State tables {#architecture_state-tables}
#   [states](architecture.md#state-tables) -> [states](@ref architecture_state-tables)
#   `it's code`                            -> ``it's code``, which Doxygen would take for a quotation
#   <!-- site: ANYTHING -->                -> ANYTHING, which only the site shows
#
# usage: awk -v root=TREE -f page-filter.awk FILE

# The name of a page: its file's name, which is README twice.
function page_name(path,   base)
{
    base = path
    sub(/.*\//, "", base)
    sub(/\.md$/, "", base)
    if (base != "README") {
        return tolower(base)
    }
    return path ~ /^docs\// ? "documentation" : "index"
}

# The anchor that repository viewers give to a heading.
function slug(title,   text)
{
    text = tolower(title)
    gsub(/[^a-z0-9 _-]/, "", text)
    gsub(/ /, "-", text)
    return text
}

# The page that a link of this page leads to: the folder of this page counts.
function target_name(path,   folder)
{
    if (path == "") {
        return this_page
    }
    if (path ~ /README\.md$/) {
        folder = in_docs && path !~ /^\.\.\// ? "docs/" : ""
        return page_name(folder path)
    }
    return page_name(path)
}

function with_references(line,   out, link, path, anchor, at)
{
    out = ""
    while (match(line, /\]\([A-Za-z0-9._\/-]*(\.md)?(#[a-z0-9_-]+)?\)/)) {
        link = substr(line, RSTART + 2, RLENGTH - 3)
        at = index(link, "#")
        path = at ? substr(link, 1, at - 1) : link
        anchor = at ? "_" substr(link, at + 1) : ""
        if (path ~ /\.md$/ || (path == "" && anchor != "")) {
            link = "@ref " target_name(path) anchor
        }
        out = out substr(line, 1, RSTART + 1) link ")"
        line = substr(line, RSTART + RLENGTH)
    }
    return out line
}

# Doxygen ends a span of code at a single quote, and makes one blank of three.
function with_code(line,   parts, count, i, out)
{
    count = split(line, parts, "`")
    out = parts[1]
    for (i = 2; i <= count; ++i) {
        quote = i % 2 == 0 ? (parts[i] ~ /'/ ? "``" : "`") : quote
        if (i % 2 == 0) {
            gsub(/   /, "\302\240\302\240\302\240", parts[i])
        }
        out = out quote parts[i]
    }
    return out
}

NR == 1 {
    path = substr(FILENAME, length(root) + 2)
    in_docs = path ~ /^docs\//
    this_page = page_name(path)
}

/^```/ { in_code = !in_code }
in_code || /^```/ { print; next }

/^<!-- site: .* -->$/ {
    sub(/^<!-- site: /, "")
    sub(/ -->$/, "")
}

# The title of the front page is the title of the site.
/^# / { print $0 (this_page == "index" ? "" : " {#" this_page "}"); next }
/^##+ / {
    title = $0
    sub(/^#+ /, "", title)
    anchor = slug(title)
    # The second heading of a name gets a number, as do all further ones.
    suffix = seen[anchor]++
    print with_references($0) " {#" this_page "_" anchor (suffix ? "-" suffix : "") "}"
    next
}
{ print with_references(with_code($0)) }
