# shellcheck shell=bash
# Completion of tarnwell and tarnwell-cli for bash, from 3.2 on.
#
# Folders are left to readline, which knows how to quote any name; words of other origin (the listing of snapshots)
# are taken only when they are UUIDs, and nothing is ever evaluated.

# Prints the UUIDs of the stored snapshots, newest first.
_tarnwell_snapshots() {
    local LC_ALL=C tool=$1 line
    local pattern='^([0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12})  '
    [[ $tool == \~/* ]] && tool=$HOME/${tool:2}
    tool=$(type -P "$tool" || type -P tarnwell-cli || type -P tarnwell) || return
    "$tool" snapshot list 2>/dev/null </dev/null | while IFS= read -r line; do
        [[ $line =~ $pattern ]] && printf '%s\n' "${BASH_REMATCH[1]}"
    done
}

_tarnwell() {
    local IFS=$' \t\n' current=$2 prefix='' word index words=''
    # What the words before this one have said: the flag that waits for its value, the command, how many operands
    # it has, and the flags that may still come.
    local pending='' command='' operands=0 flags=' --json --csv --depth --top --size-mode --help '
    COMPREPLY=()

    for ((index = 1; index < COMP_CWORD; index++)); do
        word=${COMP_WORDS[index]}
        if [[ $word == = ]]; then # stands alone between a flag and its value
            continue
        elif [[ -n $pending ]]; then
            pending=
            continue
        fi
        case $word in
        --json | --csv) flags=${flags/ --json --csv / } ;;
        --depth | --top | --size-mode) pending=$word flags=${flags/ $word / } ;;
        -h | --help) command=help ;;
        -*) ;;
        *)
            case $command in
            '' | snapshot) command=${command:+$command }$word ;;
            *) operands=$((operands + 1)) ;;
            esac
            ;;
        esac
    done
    case $current in
    =) current= ;;
    --depth=* | --top=* | --size-mode=*) # where "=" separates no words
        pending=${current%%=*}
        prefix=$pending=
        current=${current#*=}
        ;;
    esac

    local wants=nothing
    case $command in
    '') words='scan snapshot help' flags=' --help ' ;;
    scan) [[ $operands == 0 ]] && wants=folder ;;
    snapshot) words='save list diff help' flags=' --help ' ;;
    'snapshot save') flags=${flags/ --csv / } && [[ $operands == 0 ]] && wants=folder ;;
    'snapshot list') flags=${flags/ --csv / } ;;
    'snapshot diff') flags=${flags/ --csv / } && [[ $operands -lt 2 ]] && wants=snapshot ;;
    *) flags= ;;
    esac
    case $command in
    'snapshot '*) flags=${flags/ --depth --top --size-mode / } ;;
    esac
    if [[ -n $pending ]]; then
        wants=nothing words='' flags=''
        [[ $pending == --size-mode ]] && words='apparent allocated reclaimable'
    elif [[ $current == -* ]]; then
        wants=nothing words="$flags${flags:+-h}"
    elif [[ $wants == snapshot ]]; then
        words="latest previous $(_tarnwell_snapshots "$1")"
        # The tool does not mind the case of either.
        case $current in
        [lpLP]*) current=$(printf '%s' "$current" | tr '[:upper:]' '[:lower:]') ;;
        *) current=$(printf '%s' "$current" | tr '[:lower:]' '[:upper:]') ;;
        esac
        compopt -o nosort 2>/dev/null
    elif [[ $wants == nothing && -z $words ]]; then
        words=$flags
    fi

    # Only words without anything that a shell expands come here.
    # shellcheck disable=SC2207
    COMPREPLY=($(compgen -P "$prefix" -W "$words" -- "$current"))
    [[ $wants == folder ]] || compopt +o dirnames 2>/dev/null
    return 0
}

complete -o dirnames -F _tarnwell tarnwell tarnwell-cli
