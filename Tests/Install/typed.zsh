#!/usr/bin/env zsh
# typed.zsh bash|zsh OUTPUT: starts the shell on a terminal of its own, with the completions that are installed in
# $PREFIX, types each line of standard input, and writes what the command line is then, each ended by a NUL. In the
# input, <tab> is that key, <list> one that shows all completions, and <all> one that inserts them. OUTPUT.screen is
# what the terminal got to show.
zmodload zsh/zpty || exit 77
export TERM=dumb INPUTRC=/dev/null HISTFILE= PATH="$PREFIX/bin:$PATH" TYPED="$2"
: >$TYPED >$TYPED.screen

bashSetup='source "$PREFIX/share/bash-completion/completions/tarnwell"; source "$PREFIX/share/bash-completion/completions/tarnwell-tidy"
dump() { printf "%s\0" "$READLINE_LINE" >>"$TYPED"; READLINE_LINE=; READLINE_POINT=0; echo DUM""PED; }
bind -x "\"\\C-xd\": dump"; bind "\"\\C-xa\": insert-completions"; bind "set bell-style none"; PS1="REA""DY "'
zshSetup='stty columns 400; fpath=("$PREFIX/share/zsh/site-functions" $fpath); autoload -Uz compinit; compinit -u -D; unset zle_bracketed_paste
zle -C all complete-word _generic; bindkey "^Xa" all; bindkey "^Xl" list-choices; bindkey "^I" complete-word; unsetopt beep
zstyle ":completion:all:*" insert yes; zstyle ":completion:all::::" completer _all_matches _complete
dump() { printf "%s\0" "$BUFFER" >>$TYPED; BUFFER=; zle -R; print DUM""PED }
zle -N dump; bindkey "^Xd" dump; PS1="REA""DY "'

case $1 in
  bash) zpty -b shell bash --norc --noprofile -i; zpty -w shell "$bashSetup" ;;
  zsh) zpty -b shell zsh -f -i; zpty -w shell "$zshSetup" ;;
esac
zpty -r -m shell answer '*READY *'
while IFS= read -r line; do
  line=${${${line//<tab>/$'\t'}//<list>/$'\C-xl'}//<all>/$'\C-xa'}
  zpty -w -n shell "$line"$'\C-xd'
  zpty -r -m shell answer '*DUMPED*'
  print -rn -- $answer >>$TYPED.screen
done
zpty -d shell
