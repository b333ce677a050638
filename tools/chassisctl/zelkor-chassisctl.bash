# bash completion of zelkor-chassisctl. Boards and sensors come from the running daemon, when there is one.

# Lines of `list`: board headings begin in the first column, sensors' lines with blanks and their id.
_zelkor_chassisctl_boards() {
    timeout 1 "$1" ${2:+--socket "$2"} list 2>/dev/null | awk '/^[^ ]/ { print $1 }'
}

_zelkor_chassisctl_sensors() {
    timeout 1 "$1" ${2:+--socket "$2"} list 2>/dev/null |
        awk -v board="$3" '/^[^ ]/ { here = $1 == board } /^ / && here && $1 ~ /^-?[0-9]+$/ { print $1 }'
}

_zelkor_chassisctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
    local socket='' choices='' i
    local -a words=()
    # The words before the cursor that are no options.
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --socket) socket=${COMP_WORDS[i + 1]} && ((i++)) ;;
            --type | --uri | --name | --live | --host | --port | --user | --password-file | --privilege | --cipher | \
                --ipmb | --device | --timeout) ((i++)) ;;
            --*) ;;
            *) words+=("${COMP_WORDS[i]}") ;;
        esac
    done
    COMPREPLY=()
    case $previous in
        --socket | --password-file | --device)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        --type)
            mapfile -t COMPREPLY < <(compgen -W 'icb io os power_supply power_unit system_board processor_board
                add_in_card fan cooling other' -- "$current")
            return
            ;;
        --privilege)
            mapfile -t COMPREPLY < <(compgen -W 'user operator administrator' -- "$current")
            return
            ;;
        --cipher)
            mapfile -t COMPREPLY < <(compgen -W '17 3' -- "$current")
            return
            ;;
        --uri | --name | --live | --host | --port | --user | --ipmb | --timeout) return ;;
    esac
    if [[ $current == --* ]]; then
        case ${words[0]} in
            list) choices='--json' ;;
            journal) choices='--follow --json' ;;
            import)
                choices='--type --uri --name --live --host --port --user --password-file --privilege --cipher --ipmb
                    --device --timeout'
                ;;
            '') choices='--help --version' ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$choices --socket" -- "$current")
        return
    fi
    case ${#words[@]}:${words[0]} in
        0:*)
            choices='list set auto invalid fail missing slow heal limit clock fpga journal shutdown-count power import'
            ;;
        1:set | 1:auto | 1:invalid | 1:fail | 1:missing | 1:slow | 1:heal | 1:limit | 1:clock | 1:shutdown-count | 1:power)
            choices=$(_zelkor_chassisctl_boards "${COMP_WORDS[0]}" "$socket")
            ;;
        2:set | 2:auto | 2:invalid | 2:fail | 2:missing | 2:heal | 2:limit)
            choices=$(_zelkor_chassisctl_sensors "${COMP_WORDS[0]}" "$socket" "${words[1]}")
            ;;
        3:limit) choices='lnr lc lnc unc uc unr nominal' ;;
        4:limit) choices='none' ;;
        3:set) choices='nan inf' ;;
        1:fpga) choices='read write fail heal' ;;
        1:import)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
}

complete -F _zelkor_chassisctl zelkor-chassisctl
