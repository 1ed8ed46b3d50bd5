# SPDX-License-Identifier: MIT
# Input filter of the reference. In a header of zel one comment stands above a family of members and
# holds for all of them, up to the next blank line or comment; Doxygen wants that in its own words.
function close_group() { if (open) { print indent "///@}"; open = 0 } }
# Specialisations of the standard library's templates are no part of the reference, and confuse it.
/^template <.*struct std::hash/ { hidden = 1 }
hidden { if (/^\};/) { hidden = 0 } next }
# A backslash in backquotes is a command to Doxygen, and one at the end takes the end away; a quote
# ends them too soon, brackets begin a link.
/^ *\/\/\// || FILENAME ~ /\.md$/ {
    line = ""
    rest = $0
    while (match(rest, /`[^`]*`/)) {
        span = substr(rest, RSTART, RLENGTH)
        if (span ~ /[\\'"\[\]]/) {
            gsub(/\\/, "&&", span)
            gsub(/"/, "\\&quot;", span)
            gsub(/'/, "\\&apos;", span)
            sub(/`$/, span ~ /\\`$/ ? "\\&zwnj;`" : "`", span)
            span = "<code>" substr(span, 2, length(span) - 2) "</code>"
        }
        line = line substr(rest, 1, RSTART - 1) span
        rest = substr(rest, RSTART + RLENGTH)
    }
    $0 = line rest
}
FILENAME ~ /\.md$/ { gsub(/\]\([.\/]*examples(\/notebook)?\)/, "](@ref examples)"); print; next }
# What the compiler writes, or nobody may call, needs no words of its own; nor does a friend that is a
# class.
/^ *(template <.*> )?friend (class|struct) / { next }
!commented && / = (default|delete);$/ { next }
/^ *\/\/\// {
    if (!commented) { close_group(); match($0, /^ */); indent = substr($0, 1, RLENGTH); comment = ""; commented = 1 }
    comment = comment $0 "\n"
    next
}
commented {
    # A comment of a class or of a namespace has no family, and neither has one that is followed by
    # nothing.
    commented = 0
    if ($0 ~ /^ *$/ || $0 ~ /^ *(#define|class|struct|namespace|enum|union|template <[^>]*> (class|struct)) / \
        || $0 ~ /^ *\}/) {
        printf "%s", comment
    } else {
        print indent "///@{"
        printf "%s", comment
        open = 1
    }
}
open && (/^ *$/ || /^\} \/\/ namespace/ || /^ *(public|protected|private):/ || /^ *\/\/ clang-format/ || (/^ *\}/ && match($0, /^ */) && RLENGTH < length(indent))) { close_group() }
{ print }
END { close_group() }
