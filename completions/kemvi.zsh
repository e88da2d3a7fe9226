#compdef kemvi
# Completion of kemvi's commands, options and mount points for zsh. It asks the command itself what there is to complete
# (kemvi help), so that both always agree, and asks nothing of what is mounted, behind which a helper may hang.

# The help of the command line so far: of a command, or of kemvi.
_kemvi_help() {
    ${words[1]} help "$@" 2>/dev/null
}

_kemvi_commands() {
    local -a commands
    local line name
    for line in ${(f)"$(_kemvi_help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z, -]*[a-z]\)  *\(.*\)/\1:\2/p')"}; do
        for name in ${(s:, :)${line%%:*}}; do
            commands+=("$name:${line#*:}")
        done
    done
    commands+=('help:Tell more of a command')
    _describe -t commands command commands
}

# The lines of the options of a command: "-f,--foreground", "--log-file FILE".
_kemvi_options() {
    _kemvi_help "$1" | sed -n 's/^  \(-[^ ]*\( [^ ]\{1,\}\)*\).*/\1/p'
}

# What an option takes: "FILE"; nothing for a flag.
_kemvi_value() {
    local line
    for line in ${(f)"$(_kemvi_options $1)"}; do
        if [[ ,${line%% *}, == *,$2,* && $line == *' '[A-Z]* && ${line#* } != (Excludes|Needs):* ]]; then
            print -r -- ${${line#* }%% *}
            return
        fi
    done
}

_kemvi_option_names() {
    local -a names
    names=(${(s:,:)${(j:,:)${(f)"$(_kemvi_options $1)"}%% *}})
    compadd -a names
}

# The mount points of this kind, from the kernel's table.
_kemvi_mount_points() {
    local -a points
    local line
    while IFS= read -r line; do
        [[ $line == *' - fuse.kemvi '* ]] && points+=("${(g:o:)${(s: :)line}[5]}")
    done </proc/self/mountinfo
    if (( $#points )); then
        compadd -f -a points
    else
        _files -/
    fi
}

# The word is a list, of which the last part is completed; "=" stays where a value belongs to the option.
_kemvi_mount_option() {
    local -a names
    compset -P '*,'
    if compset -P 'placement='; then
        compadd auto off
    elif compset -P 'on_death='; then
        compadd fail exit restart
    elif compset -P 'log_level='; then
        compadd debug info warning error
    else
        names=(${(f)"$(_kemvi_help mount | sed -n '/^Mount options:/,/^[^ M]/s/^  \([a-z].*\)/\1/p' |
            sed 's/  .*//; s/\([^,]\) [a-z].*/\1/' | tr ', ' '\n\n' |
            sed -n 's/^\([a-z_]\{2,\}=\{0,1\}\)[A-Z]*\([a-z|]*\)$/\1/p')"})
        compadd -S '' -a names
    fi
}

_kemvi_of_kind() {
    case $1 in
    FILE* | PATH | HELPER | SCRIPT) _files ;;
    DIR | SOURCE) _files -/ ;;
    LEVEL) compadd debug info warning error ;;
    OPTION,...) _kemvi_mount_option ;;
    *) _message $1 ;;
    esac
}

# The arguments of a command that are no options, by their names in its help.
_kemvi_argument() {
    local -a arguments
    arguments=(${=${$(_kemvi_help $1 | sed -n 's/^Usage: kemvi [a-z]* //p')//\[OPTIONS\]/}})
    (( $#arguments )) || return
    local name=${arguments[$(($2 < $#arguments ? $2 : $#arguments))]//[^A-Z]/}
    case $1:$name in
    mount:MOUNTPOINT) _files -/ ;;
    *:MOUNTPOINT*) _kemvi_mount_points ;;
    invalidate:*) _message 'path in the mount' ;;
    *) _kemvi_of_kind $name ;;
    esac
}

_kemvi() {
    local command=${words[2]} value index
    if (( CURRENT == 2 )); then
        if [[ ${words[2]} == -* ]]; then
            compadd -- -h --help -V --version
        else
            _kemvi_commands
        fi
        return
    fi
    if [[ $command == help ]]; then
        (( CURRENT == 3 )) && _kemvi_commands
        return
    fi
    value=$(_kemvi_value $command ${words[CURRENT - 1]})
    if [[ -n $value ]]; then
        _kemvi_of_kind $value
    elif [[ ${words[CURRENT]} == -* ]]; then
        _kemvi_option_names $command
    else
        integer arguments=1
        for (( index = 3; index < CURRENT; index++ )); do
            if [[ ${words[index]} == -* ]]; then
                [[ -n $(_kemvi_value $command ${words[index]}) ]] && (( index++ ))
            else
                (( arguments++ ))
            fi
        done
        _kemvi_argument $command $arguments
    fi
}

_kemvi "$@"
