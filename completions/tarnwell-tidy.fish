# Completion of tarnwell-tidy for fish. The program itself knows what may stand where.

# Of candidates for names those that a line of output can hold; a word that begins with "-" would be an option.
function __tarnwell_tidy_names -a prefix
    for candidate in $argv[2..-1]
        set -l name (string split -m 1 \t -- $candidate)[1]
        if string match -q -- '~*' $name; or test -e $name
            string match -q -- '-*' $name; or printf '%s%s\n' $prefix $candidate
        end
    end
end

function __tarnwell_tidy_candidates
    set -l tokens (commandline -opc)
    set -l current (commandline -ct)
    set -l tool $tokens[1]
    set -e tokens[1]
    if string match -q -- '~/*' $tool
        set tool $HOME/(string sub -s 3 -- $tool)
    end
    set -l program (command -s -- $tool; or command -s tarnwell-tidy)
    set -q program[1]; or return
    # An option with its value behind "=" is completed as a whole word.
    set -l prefix ''
    if string match -qr -- '^--[a-z-]+=' $current
        set prefix (string replace -r -- '=.*' '=' $current)
        set -a tokens (string replace -r -- '=.*' '' $current)
        set current (string replace -r -- '^[^=]*=' '' $current)
    end
    for line in ($program[1] complete-words $tokens "$current" 2>/dev/null </dev/null)
        switch $line
            case :folders
                __tarnwell_tidy_names "$prefix" (__fish_complete_directories "$current" '')
            case :paths
                __tarnwell_tidy_names "$prefix" (__fish_complete_path "$current" '')
            case '*'
                printf '%s%s\n' $prefix $line
        end
    end
end

complete -c tarnwell-tidy -e
complete -c tarnwell-tidy -f -a '(__tarnwell_tidy_candidates)'
