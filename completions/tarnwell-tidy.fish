# Completion of tarnwell-tidy for fish. The program itself knows what may stand where.

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
                # Folders that a line of output can name; a word that begins with "-" would be an option.
                __fish_complete_directories "$current" '' | string match -v -- '-*' | string replace -r -- '^' "$prefix"
            case :paths
                __fish_complete_path "$current" '' | string match -v -- '-*' | string replace -r -- '^' "$prefix"
            case '*'
                printf '%s%s\n' $prefix $line
        end
    end
end

complete -c tarnwell-tidy -e
complete -c tarnwell-tidy -f -a '(__tarnwell_tidy_candidates)'
