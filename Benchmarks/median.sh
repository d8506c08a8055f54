# shellcheck shell=bash
# Sourced by the scripts beside it.

# median COLUMN: of the lines on standard input; nothing when there are none.
median() {
    awk -v column="$1" '{ print $column }' | sort -n | awk '{ value[NR] = $1 }
        END { if (NR > 0) print (value[int((NR + 1) / 2)] + value[int(NR / 2) + 1]) / 2 }'
}
