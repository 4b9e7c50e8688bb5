# usage: zsh -f complete.zsh FOLDER LINE...   prints what is offered at the end of each line, and @@next
zmodload zsh/zpty
zpty shell zsh -f -i
expect() { local text='' part; until [[ $text == *$1* ]]; do zpty -r shell part || exit 1; text+=$part; done }
zpty -w shell "PS1= PS2=; fpath=($1 \$fpath); autoload -Uz compinit; compinit -D -u
offered=()
compadd() {
    local -a matches
    [[ \${@[1,(i)(-|--)]} == *-[OAD]\ * ]] && { builtin compadd \"\$@\"; return }
    builtin compadd -A matches \"\$@\"
    offered+=(\$matches)
    builtin compadd \"\$@\"
}
offer() { offered=(); _main_complete; compstate[insert]= compstate[list]=; print -rl -- @@begin \$offered @@end; }
zle -C offer complete-word offer
bindkey '^I' offer; print @@re''ady"
expect @@ready
for line in "${@[2,-1]}"; do
    zpty -w -n shell "$line"$'\t'
    text=''
    until [[ $text == *@@end* ]]; do zpty -r shell part || exit 1; text+=$part; done
    print -r -- ${${text#*@@begin}%%@@end*}
    print -r -- @@next
    zpty -w -n shell $'\025'
done
zpty -d shell
