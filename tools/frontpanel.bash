# Completion of the command line of frontpanel, for bash: with the commands, options and choices of its help.

_frontpanel()
{
    local program=${COMP_WORDS[0]/#~\//$HOME/}
    local cur=${COMP_WORDS[COMP_CWORD]}
    local prev=${COMP_WORDS[COMP_CWORD - 1]}
    local command="" help own="" words i

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

    help=$("$program" --help 2>/dev/null)
    [[ -n $command ]] && own=$("$program" "$command" --help 2>/dev/null)
    case $prev in
    -h | --help | --version | --) ;;
    --*)
        words=$(sed -n "s/^  $prev \([a-z]*|[a-z|]*\)=.*/\1/p" <<<"$help"$'\n'"$own")
        mapfile -t COMPREPLY < <(compgen -W "${words//|/ }" -- "$cur")
        return
        ;;
    esac
    if [[ -n $command ]]; then
        help=$(sed -n '/^Wiring:/,/^$/p' <<<"$help")$'\n'$own
    fi
    words=$(sed -n 's/^ *\(-h,\)\{0,1\}\(--[a-z-]*\).*/\2/p; /^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p' <<<"$help")
    if [[ $command != led || $prev == [0-9]* ]]; then
        words+=$'\n'$(sed -n 's/^  \([a-z]*|[a-z|]*\) .*/\1/p' <<<"$help" | tr '|' '\n')
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}
complete -F _frontpanel frontpanel
