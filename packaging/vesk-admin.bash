# bash completion for vesk-admin                                       -*- shell-script -*-

_vesk_admin() {
    local cur prev words cword split
    _init_completion -s || return

    case $prev in
    -c | --config)
        _filedir
        return
        ;;
    --role)
        COMPREPLY=($(compgen -W 'maintainer customer' -- "$cur"))
        return
        ;;
    esac

    # The command and the number of arguments between it and the cursor.
    local command='' arguments=0 i
    for ((i = 1; i < cword; i++)); do
        case ${words[i]} in
        -c | --config | --role) ((i++)) ;;
        -*) ;;
        *) [[ -z $command ]] && command=${words[i]} || ((arguments++)) ;;
        esac
    done

    if [[ $cur == -* ]]; then
        local options='--config --help --role'
        COMPREPLY=($(compgen -W "-c $options -h" -- "$cur"))
    elif [[ -z $command ]]; then
        COMPREPLY=($(compgen -W 'migrate add-user add-site add-log import-log import-gsc rollup set
            geoip-update' -- "$cur"))
    else
        case $command:$arguments in
        add-log:1 | import-gsc:1 | geoip-update:0) _filedir ;;
        import-log:0) ;;
        import-log:*) _filedir ;;
        esac
    fi
} && complete -F _vesk_admin vesk-admin
