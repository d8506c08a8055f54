# Completion of tarnwell-tidy for bash, from version 3.2 on. The program itself knows what may stand where.

_tarnwell_tidy() {
    local IFS=$' \t\n' current=${COMP_WORDS[COMP_CWORD]} program=${1/#\~\//$HOME/} prefix='' word index
    local words=()
    COMPREPLY=()

    for ((index = 1; index < COMP_CWORD; index++)); do
        word=${COMP_WORDS[index]}
        [[ $word == = ]] && continue # stands alone between an option and its value
        words+=("$word")
    done
    case $current in
    =) current='' ;;
    --*=*) # where "=" separates no words
        words+=("${current%%=*}")
        prefix=${current%%=*}=
        current=${current#*=}
        ;;
    esac

    local wants=nothing meaning
    while IFS=$'\t' read -r word meaning; do
        case $word in
        :folders) wants=folders ;;
        :paths) wants=paths ;;
        ?*) COMPREPLY+=("$prefix$word") ;;
        esac
    done < <(command "$program" complete-words ${words[@]+"${words[@]}"} "$current" 2>/dev/null </dev/null)
    case $wants in
    nothing) compopt +o dirnames 2>/dev/null ;;
    paths) compopt +o dirnames -o default 2>/dev/null ;;
    esac
    return 0
}

complete -o dirnames -F _tarnwell_tidy tarnwell-tidy
