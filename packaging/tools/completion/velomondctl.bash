# bash completion of velomondctl
_velomondctl()
{
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} one command=
    local general='--host --port --timeout --no-colour --no-color --help'
    for one in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $one in
        status | cpu | mem | net | disk | cameras | disks | dump | notify | watch | check | top | report) command=$one ;;
        esac
    done
    case $before in
    -o | --output)
        case $command in
        report) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        status) mapfile -t COMPREPLY < <(compgen -W 'table json' -- "$word") ;;
        *) mapfile -t COMPREPLY < <(compgen -W 'table json csv' -- "$word") ;;
        esac
        return
        ;;
    --host)
        mapfile -t COMPREPLY < <(compgen -A hostname -- "$word")
        return
        ;;
    --port | --timeout | --last | --interval | --passes | --columns | --lines)
        return
        ;;
    --warn | --crit)
        mapfile -t COMPREPLY < <(compgen -W 'disks= fans= recording= cameras= cpu= memory= swap= volumes= latency=' -- "$word")
        compopt -o nospace
        return
        ;;
    esac
    case $command in
    '') one='status cpu mem net disk cameras disks dump notify watch check top report --version' ;;
    status) one='-o --output' ;;
    cpu | mem | net | disk)
        one='-o --output --last --series'
        [[ $word == -* ]] || one=$(velomondctl --timeout 1 "$command" -o csv 2>/dev/null | sed '1d; s/,.*//')
        ;;
    cameras) one='-o --output --last' ;;
    disks) one='-o --output' ;;
    dump) one='--wait' ;;
    notify) one='storage disks bus' ;;
    watch) one='--interval --passes' ;;
    check) one='--warn --crit' ;;
    top) one='--plain --columns --lines' ;;
    report)
        one='-o --output'
        [[ $word == -* ]] || { mapfile -t COMPREPLY < <(compgen -d -- "$word") && return; }
        ;;
    esac
    [[ $word == -* || $command == '' ]] && one+=" $general"
    mapfile -t COMPREPLY < <(compgen -W "$one" -- "$word")
}
complete -F _velomondctl velomondctl
