# bash completion for vex(1)

_vex_options() {
    case $1 in
        seal) echo --key-file --cipher --compress --no-encrypt --level --window ;;
        open) echo --key-file --cipher ;;
        info | size | os) echo --json ;;
        digest) echo --md5 --json --check ;;
        index) echo --files --bits --json ;;
        uid) printf '%s ' -n --json ;;
        sort) echo --record --key --unique --memory --merge --temp ;;
        passwd) echo --key-file ;;
        walk) echo --type --name --larger --depth --same-device --follow --delay --sorted --stat --json --null ;;
        http) echo --ca-file --cert --key --proxy --header --content-type --timeout --retries --digest ;;
    esac
}

# what may stand as the operand of a number, from 1 on: words, or the mark of files or directories
_vex_operand() {
    case $1:$2 in
        id:1) echo show next write ;;
        ini:1) echo get set list delete ;;
        passwd:1) echo encode decode encrypt decrypt ;;
        passwd-store:1) echo init rotate ;;
        http:1) echo get put post head delete ;;
        registry:1) echo get set list ;;
        cloud:1) echo show enable disable cache-size ;;
        net:1) echo resolve connect listen local range routes ;;
        net:2) [[ $3 == routes ]] && echo add delete ;;
        walk:1) echo /directories/ ;;
        keygen:1 | seal:[12] | open:[12] | sort:[12] | info:* | digest:* | index:*) echo /files/ ;;
        id:2 | ini:2 | passwd-store:2 | registry:2 | http:3) echo /files/ ;;
    esac
}

_vex_value() {
    case $2 in
        --ini | --key-file | --ca-file | --cert | --check) echo /files/ ;;
        --key) [[ $1 == http ]] && echo /files/ ;;
        --temp) echo /directories/ ;;
        --cipher) echo blowfish aes-256-cfb aes-256-ofb aes-256-ctr ;;
        --compress) echo lzo deflate none ;;
        --type) echo f d l o ;;
    esac
}

_vex_takes_value() {
    case $1 in
        --ini | --key-file | --cipher | --compress | --level | --window | --check | --bits | -n) return 0 ;;
        --record | --key | --memory | --merge | --temp | --type | --name | --larger | --depth | --delay) return 0 ;;
        --ca-file | --cert | --proxy | --header | --content-type | --timeout | --retries) return 0 ;;
    esac
    return 1
}

_vex() {
    local current=${COMP_WORDS[COMP_CWORD]} command='' action='' operands=0 option='' plain='' word words i
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == -- && -z $plain ]]; then
            plain=1
        elif [[ -z $plain && $word == -* ]]; then
            option=$word
            if _vex_takes_value "$option"; then
                # "--option=value" comes in three words
                [[ ${COMP_WORDS[i + 1]} == = ]] && ((++i))
                ((++i < COMP_CWORD)) && option=''
            else
                option=''
            fi
        elif [[ -z $command ]]; then
            command=$word
        else
            ((++operands == 1)) && action=$word
        fi
    done
    [[ $current == = ]] && current=''

    if [[ -n $option ]]; then
        words=$(_vex_value "$command" "$option")
    elif [[ -z $plain && $current == -* ]]; then
        words="$(_vex_options "$command") --ini"
        [[ -z $command ]] && words+=' --help --version --features --os-test --copyrights --noversioncheck'
    elif [[ -z $command ]]; then
        words='keygen seal open info digest index uid id ini size sort passwd passwd-store os walk http registry
               cloud net'
    else
        words=$(_vex_operand "$command" $((operands + 1)) "$action")
    fi
    case $words in
        /files/) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
        /directories/) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
        *) mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current") ;;
    esac
    # outside a completion, as in a test, there is nothing to tell
    [[ $words == /* ]] && compopt -o filenames 2>/dev/null
    return 0
} && complete -F _vex vex
