# bash completion for oisctl. Modules, scenarios and properties are asked of the tool itself; the rest is listed here.

_oisctl_first_words() { # of the lines of a listing below its head
    "$tool" "$@" 2>/dev/null | awk 'NR > 1 { print $1 }'
}

_oisctl() {
    local tool=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} words=
    COMPREPLY=()

    if [ "$COMP_CWORD" -eq 1 ]; then
        words=$("$tool" --help | awk '/^Subcommands:/ { on = 1; next } /^$/ { on = 0 } on { print $1 }')
        words="$words --help --version"
    elif [[ $word == -* ]]; then
        words=$("$tool" "$command" --help | grep -oE '^  (-[a-zA-Z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+')
    else
        case $before in
            -m | --module) words=$(_oisctl_first_words modules) ;;
            --scenario) words=$(_oisctl_first_words scenarios) ;;
            -s | --set) words=$(_oisctl_first_words properties | sed 's/$/=/') ;;
            --motion) words="rest hand pan walk" ;;
            --kernel) words="simulated real" ;;
            --log-level) words="off error info debug" ;;
            --log-sinks) words="debug unified both none" ;;
            --defect) words="stuck sluggish off-centre stuck-x stuck-y sluggish-x sluggish-y off-centre-x off-centre-y" ;;
            modules) words=$(_oisctl_first_words modules) ;;
            scenarios) words=$(_oisctl_first_words scenarios) ;;
            dump) words="otp flash" ;;
            op) words=$("$tool" op --help | awk '/^Operations:/ { on = 1; next } /^$/ { on = 0 } on { print $2 }') ;;
        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    [[ ${COMPREPLY[0]:-} == *= ]] && compopt -o nospace
    # Files where the word names none of these.
    [ ${#COMPREPLY[@]} -gt 0 ] || compopt -o default 2>/dev/null
}

complete -F _oisctl oisctl
