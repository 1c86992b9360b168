# Closes ./dev bench: reads rows.tsv and the benchmarks' JSON, and prints for each row the two
# medians, their ratio and whether it is what it has to be.
#
# A measure in rows.tsv is
#   NAME[.COUNTER][*FACTOR]   a benchmark's median time, or the median of one of its counters
#   NUMBER UNIT               a time that is given

function strip(name) { # of what a run adds to a benchmark's name
    gsub(/\/(iterations|repeats|min_time|real_time|manual_time|process_time|threads)(:[0-9.]+)?/, "", name)
    return name
}

function value(measure,    part) {
    split(measure, part, "*")
    if (part[1] ~ /^[0-9.]+ [num]?s$/) {
        split(part[1], part, " ")
        return part[1] * nanoseconds[part[2]]
    }
    return part[1] in median ? median[part[1]] * (2 in part ? part[2] : 1) : ""
}

function human(number, measure) {
    if (measure ~ /_kib/) return sprintf("%.0f KiB", number)
    if (number < 1e3) return sprintf("%.0f ns", number)
    if (number < 1e6) return sprintf("%.2f us", number / 1e3)
    if (number < 1e9) return sprintf("%.2f ms", number / 1e6)
    return sprintf("%.2f s", number / 1e9)
}

BEGIN {
    nanoseconds["ns"] = 1; nanoseconds["us"] = 1e3; nanoseconds["ms"] = 1e6; nanoseconds["s"] = 1e9
}

FILENAME ~ /\.tsv$/ {
    if ($0 !~ /^(#|$)/) row[++rows] = $0
    next
}

# The library writes one key a line, what names a run before its figures.
/"run_name":/ { name = $0; sub(/.*"run_name": "/, "", name); sub(/".*/, "", name); name = strip(name) }
/"run_type":/ { is_median = 0 }
/"repetitions": 1,/ { is_median = 1 } # measured once, a benchmark has no aggregates
/"aggregate_name":/ { is_median = /"median"/ }
is_median && /^ *"[a-z_]+": -?[0-9.]+e[-+][0-9]+/ {
    split($0, part, /[": ,]+/)
    if (part[2] == "real_time") real_time = part[3]
    else median[name "." part[2]] = part[3]
}
is_median && /"time_unit":/ { split($0, part, "\""); median[name] = real_time * nanoseconds[part[4]] }

END {
    format = "%-34s %10s  %-30s %10s %6s %7s  %s\n"
    printf format, "work", "ours", "beside", "", "ratio", "at most", ""
    for (i = 1; i <= rows; ++i) {
        split(row[i], field, "\t")
        ours = value(field[2])
        other = value(field[4])
        if (ours == "" || other == "") {
            missing[++missings] = field[1] " / " field[3]
            continue
        }
        ratio = sprintf("%.2f", ours / other)
        verdict = field[5] == "-" ? "" : ratio + 0 <= field[5] + 0 ? "met" : "NOT MET"
        again = field[1] == last
        printf format, again ? "" : field[1], again ? "" : human(ours, field[2]), field[3], human(other, field[4]), ratio, field[5], verdict
        last = field[1]
    }
    if (missings > 0) print "\nnot measured:"
    for (i = 1; i <= missings; ++i) print "  " missing[i]
}
