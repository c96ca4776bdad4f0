# Completion of the command line of frontpanel, for bash.

_frontpanel()
{
    local cur=${COMP_WORDS[COMP_CWORD]}
    local prev=${COMP_WORDS[COMP_CWORD - 1]}
    local wiring="--panel --id-base --key-base --led-base --lcd-base --key-count --led-count --inverted-leds --leds-on"
    local command="" words="" i

    # The first word that is neither an option nor an option's value.
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
        -h | --help | --version) ;;
        --*) i=$((i + 1)) ;;
        *)
            command=${COMP_WORDS[i]}
            break
            ;;
        esac
    done

    case $prev in
    --panel) words="auto indoor outdoor" ;;
    -h | --help | --version | --) ;;
    --*) return ;;
    esac
    if [[ -z $words ]]; then
        case $command in
        "") words="detect chips keys led leds print lamptest demo $wiring --version --help" ;;
        led)
            [[ $prev == [0-9]* ]] && words="on off "
            words+="$wiring --help"
            ;;
        leds) words="on off $wiring --help" ;;
        print) words="--invert $wiring --help" ;;
        demo) words="--lamp-seconds --seconds $wiring --help" ;;
        *) words="$wiring --help" ;;
        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}
complete -F _frontpanel frontpanel
