# Completion of the command line of panelsim, for bash: its options and, after --, the application's command line.

_panelsim()
{
    local cur=${COMP_WORDS[COMP_CWORD]}
    local prev=${COMP_WORDS[COMP_CWORD - 1]}
    local words="" i

    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} == -- ]]; then
            # Of the package bash-completion, which knows how other commands are completed.
            if declare -F _command_offset >/dev/null; then
                _command_offset $((i + 1))
            else
                mapfile -t COMPREPLY < <(compgen -cf -- "$cur")
            fi
            return
        fi
    done

    case $prev in
    --panel) words="indoor outdoor" ;;
    --chip) words="ra8803 ra8806" ;;
    --scenario | --lint | --vcd)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
        return
        ;;
    --keys | --leds | --*-count | --*-names | --led-colours | --inverted-leds | --*-base | --panel-id | --fail | --stuck | \
        --http | --timeout) return ;;
    *)
        words="--panel --panel-id --chip --silent-chip --key-count --led-count --key-names --led-names --led-colours
            --inverted-leds --id-base --key-base --led-base --lcd-base --fail --stuck --http --no-http --stay
            --draw --scenario --lint --timeout --vcd --version --help --"
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}
complete -F _panelsim panelsim
