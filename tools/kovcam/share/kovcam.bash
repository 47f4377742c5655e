# Completion of kovcam for bash: source it, or put it into a folder of completions as "kovcam".
_kovcam() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} tool=${COMP_WORDS[0]}
    local commands="modes scenes commands messages formats shoot script demo gallery serve soak trace help"
    local modes scenes
    COMPREPLY=()
    case "$before" in
    :) # a colon parts words for bash: what stands before it is not repeated
        scenes=$("$tool" scenes 2>/dev/null | sed -n 's/^scene:\([^ ]*\).*/\1/p')
        mapfile -t COMPREPLY < <(compgen -W "$scenes" -- "$word")
        return
        ;;
    -i | --input)
        scenes=$("$tool" scenes 2>/dev/null | sed -n 's/^\(scene:[^ ]*\).*/\1/p')
        mapfile -t COMPREPLY < <(compgen -W "$scenes" -- "$word"; compgen -f -- "$word")
        return
        ;;
    shoot | demo)
        modes=$("$tool" modes 2>/dev/null | awk 'NR > 1 { print $1 }')
        mapfile -t COMPREPLY < <(compgen -W "$modes" -- "$word")
        return
        ;;
    esac
    local help=("${COMP_WORDS[1]}")
    if [ "${COMP_WORDS[1]}" = shoot ]; then
        help+=("${COMP_WORDS[2]}")
    fi
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "$commands --help --version --log" -- "$word")
    elif [[ $word == -* ]]; then
        local options
        options=$("$tool" "${help[@]}" --help 2>/dev/null |
            grep -oE -- '--[a-z-]+' | sort -u)
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -o filenames -F _kovcam kovcam
