# SPDX-License-Identifier: MIT
# Reads all pages of a site, and prints the links within it that lead nowhere, and emphasis that Doxygen
# did not understand: it may not begin or end with code.
function name(path) { sub(/.*\//, "", path); return path }
FNR == 1 { page = name(FILENAME); is_page[page] = 1 }
/\*\*<code>|<\/code>\*\*/ { print page " shows asterisks" }
{
    rest = $0
    while (match(rest, /(id|name|href)="[^"]*"/)) {
        word = substr(rest, RSTART, RLENGTH)
        rest = substr(rest, RSTART + RLENGTH)
        text = word
        sub(/^[a-z]*="/, "", text)
        sub(/"$/, "", text)
        if (word !~ /^href/) {
            is_anchor[page "#" text] = 1
        } else if (text == "#nested-classes") {
            continue # Doxygen writes it for a private class, too, which it does not show
        } else if (text !~ /^[a-z]+:/ && text ~ /(\.html|^)(#|$)/) {
            sub(/^#/, page "#", text)
            from[text] = page
        }
    }
}
END {
    for (link in from) {
        target = link
        sub(/#.*/, "", target)
        if (!(target in is_page) || (link ~ /#./ && !(link in is_anchor))) {
            print from[link] " leads to " link ", which is not there"
        }
    }
}
