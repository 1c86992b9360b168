# Turns the table of the report's entries, tests/data/board_report.tsv, into the script that a user
# would make a report with: each entry under `timeout`, between a header and a footer.

function quoted(text) {
    gsub(/\\n/, "\n", text)
    gsub(/'/, "'\\''", text)
    return "'" text "'"
}

function copies(directory, prefix, destination) {
    print "copies /data/vendor/" directory " " prefix " " destination
}

BEGIN {
    FS = "\t"
    print "entry() { # TITLE SECONDS ARGV..."
    print "    title=$1 seconds=$2; shift 2"
    print "    print -r -- \"------ $title ($*) ------\""
    print "    start=$EPOCHREALTIME"
    print "    timeout $seconds \"$@\" 2>&1 </dev/null || print \"*** exit status $?\""
    print "    print -r -- \"------ $start to $EPOCHREALTIME was '$title' ------\""
    print "}"
    print "copies() { # DIRECTORY PREFIX DESTINATION: the ten newest"
    print "    set -A logs -- $1/$2*; i=${#logs[*]}; n=0"
    print "    while ((i-- > 0 && n++ < 10)); do"
    print "        entry 'CP LOG' 5 /vendor/bin/cp ${logs[i]} $3 >/dev/null"
    print "    done"
    print "}"
    print "print 'verbose logging: disabled'"
}

$1 == "sleep" { print "sleep " $2 }

$1 ~ /^(-|development)/ {
    line = "entry " quoted($3) " " ($4 ~ /^[0-9]+$/ ? $4 : 10)
    if ($2 == "file") line = line " /vendor/bin/cat"
    for (i = 5; i <= NF; ++i) {
        # The test's own value for what the device keeps in a property.
        line = line " " ($i == "/touch/from/property" ? "$(getprop ro.vendor.touch.dump_path)" : quoted($i))
    }
    print line
}

$NF ~ /log\/bluetooth$/ {
    copies("bluetooth", "btsnoop_hci_vnd", $NF)
    copies("bluetooth", "btsnoop_hci_mcu", $NF)
    copies("ssrdump/coredump", "coredump_bt_2", $NF)
    copies("ssrdump/coredump", "coredump_bt_chredump_", $NF)
}

$NF ~ /log\/ramoops$/ {
    copies("ramoops_backup", "console-ramoops-", $NF)
    copies("ramoops_backup", "dmesg-ramoops-", $NF)
}

END { print "exit 0" }
