# Completion of tarnwell and tarnwell-cli for fish.

# Whether the words before the cursor lead to one of the places given: command, snapshot-command, or a command with
# the number of its operands so far, as in "scan 0".
function __tarnwell_at
    set -l tokens (commandline -opc)
    set -l operands
    set -l isValue
    for token in $tokens[2..-1]
        if set -q isValue[1]
            set -e isValue[1]
            continue
        end
        switch $token
            case -h --help
                return 1
            case --depth --top --size-mode
                set isValue yes
            case '-*'
            case '*'
                set -a operands $token
        end
    end

    set -l place "$operands[1]"
    set -l count (count $operands)
    if test $count -eq 0
        set place command
    else if test $count -eq 1 -a "$place" = snapshot
        set place snapshot-command
    else if test "$place" = snapshot
        set place "$operands[2] "(math $count - 2)
    else
        set place "$place "(math $count - 1)
    end
    contains -- $place $argv
end

# Folders that a line of output can name. The tool takes a word that begins with "-" for a flag; such folders complete
# behind "./".
function __tarnwell_folders
    for folder in (__fish_complete_directories)
        set -l name (string split -m 1 \t -- $folder)[1]
        if string match -q -- '~*' $name; or test -d $name
            string match -v -- '-*' $folder
        end
    end
end

# The stored snapshots with their listing as description, newest first, and the two words for the newest ones.
function __tarnwell_snapshots
    set -l tool (commandline -opc)[1]
    if string match -q -- '~/*' $tool
        set tool $HOME/(string sub -s 3 -- $tool)
    end
    set -l program (command -s -- $tool; or command -s tarnwell-cli; or command -s tarnwell)
    printf '%s\t%s\n' latest 'the newest snapshot' previous 'the second newest'
    if set -q program[1]
        # Nothing in a folder's name that a terminal would obey.
        $program[1] snapshot list 2>/dev/null </dev/null | string replace -ra '[[:cntrl:]]' '?' |
            string replace -rf '^([0-9A-F]{8}(?:-[0-9A-F]{4}){3}-[0-9A-F]{12})  ' '$1\t'
    end
end

for tool in tarnwell tarnwell-cli
    complete -c $tool -e
    complete -c $tool -f
    set -l scan '__tarnwell_at "scan 0" "scan 1"'
    set -l saved '__tarnwell_at "save 0" "save 1" "list 0" "diff 0" "diff 1" "diff 2"'
    set -l isPlain 'not __fish_contains_opt json csv'

    complete -c $tool -n '__tarnwell_at command' -a scan -d 'List what is largest in a folder'
    complete -c $tool -n '__tarnwell_at command' -a snapshot -d 'Store, list and compare scans'
    complete -c $tool -n '__tarnwell_at command snapshot-command' -a help -d 'Print the usage text'
    complete -c $tool -n '__tarnwell_at snapshot-command' -a save -d 'Scan a folder and store a snapshot'
    complete -c $tool -n '__tarnwell_at snapshot-command' -a list -d 'List the stored snapshots, newest first'
    complete -c $tool -n '__tarnwell_at snapshot-command' -a diff -d 'Compare two snapshots'

    complete -c $tool -n '__tarnwell_at "scan 0" "save 0"' -a '(__tarnwell_folders)'
    complete -c $tool -n '__tarnwell_at "diff 0" "diff 1"' -k -a '(__tarnwell_snapshots)'

    complete -c $tool -n "__tarnwell_at command snapshot-command; or $scan; or $saved" -s h -l help -d 'Print the usage text'
    complete -c $tool -n "begin; $scan; or $saved; end; and $isPlain" -l json -d 'Print a JSON document'
    complete -c $tool -n "$scan; and $isPlain" -l csv -d 'Print comma-separated values'
    complete -c $tool -n $scan -x -l depth -d 'List this many levels of children'
    complete -c $tool -n $scan -x -l top -d 'List this many of the largest children of each level'
    complete -c $tool -n $scan -x -l size-mode -d 'Choose the size that is listed' \
        -a 'apparent\t"The logical size" allocated\t"What is allocated on the disk (default)" reclaimable\t"What deleting would free"'
end
