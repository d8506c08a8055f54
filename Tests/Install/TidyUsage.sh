#!/usr/bin/env bash
# The help of every command and the man page name the same commands and options, and every example of the page does
# what it says.
. "${BASH_SOURCE[0]%/*}/support.sh"

tidy=$PREFIX/bin/tarnwell-tidy
page=$SOURCE/man/tarnwell-tidy.1
# Read whole: a reader that leaves a pipe early is a failure here.
spelled=$(sed -n '/^.Sh COMMANDS/,/^.Sh JSON/p' "$page")
export XDG_CONFIG_HOME="$HOME/.config"
commands=$("$tidy" complete-words "" | cut -f 1 | grep -vxE 'help|:folders')
expect_match "commands" "$commands" $'report\n*'
expect "commands of the man page" "$(sed -n '/^.Sh COMMANDS/,/^.Sh JSON/s/^.It Cm \([a-z]*\).*/\1/p' "$page" | sort -u)" \
    "$(printf '%s\n' "$commands" | sort)"

expected=$({
    for command in $commands; do "$tidy" "$command" --help; done | grep -oE '^  (-h, )?--[a-z-]+'
    "$tidy" complete-words -- | cut -f 1
} | sed 's/.*--//' | sort -u)
expect "options of the man page" "$(grep -oE 'Fl -[a-z][-a-z]*' "$page" | sed 's/Fl -//' | grep -vx version | sort -u)" \
    "$expected"
for command in $commands; do
    grep -q "^.Dl \$ tarnwell-tidy $command" "$page" || fail "no example of $command"
    for word in $("$tidy" complete-words "$command" "" | cut -f 1 | grep -v '^:'); do
        grep -qw -e "$word" <<<"$spelled" || fail "the page lacks $command $word"
    done
done

# The home that the examples speak of.
mkdir -p "$HOME/Downloads" "$HOME/.npm/_cacache" "$HOME/Library/CloudStorage/Dropbox"
for file in Downloads/old.iso Downloads/old.zip .npm/_cacache/data; do
    printf '%2000000s' x >"$HOME/$file"
done
mkdir -p "$HOME/Applications/Editor.app/Contents"
printf '<plist version="1.0"><dict><key>CFBundleIdentifier</key><string>com.example.editor</string></dict></plist>\n' \
    >"$HOME/Applications/Editor.app/Contents/Info.plist"
touch -t 202001010000 "$HOME/Downloads/old.iso"
PATH="$PREFIX/bin:$PATH"
while IFS= read -r line; do
    # Where the home cannot have a Trash, as on some file systems for temporary files, that is what is said.
    output=$(bash -o pipefail -c "$line" 2>&1 </dev/null) || case $output in
    *Trash* | *trash*) note "no Trash here: $line" ;;
    *) fail "$line: $output" ;;
    esac
    [ -n "$output" ] || fail "$line says nothing"
done < <(sed -n 's/^.Dl \$ //p' "$page")
expect "the setting that an example sets" "$("$tidy" settings get sizeMode)" allocated
expect "the rules after the examples" "$("$tidy" rules list | grep -c 'Old images')" 0
[ -e "$HOME/.npm/_cacache/data" ] && note "the cache is still there: no Trash"
finish
