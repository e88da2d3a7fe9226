# Completion of kemvi's commands, options and mount points for bash. It asks the command itself what there is to complete
# (kemvi help), so that both always agree, and asks nothing of what is mounted, behind which a helper may hang.

# The help of the command line so far: of a command, or of kemvi.
_kemvi_help() {
    "${COMP_WORDS[0]}" help "$@" 2>/dev/null
}

_kemvi_commands() {
    _kemvi_help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z, -]*[a-z]\)  .*/\1/p' | tr -d ,
}

# The lines of the options of a command: "-f,--foreground", "--log-file FILE".
_kemvi_options() {
    _kemvi_help "$1" | sed -n 's/^  \(-[^ ]*\( [^ ]\{1,\}\)*\).*/\1/p'
}

# What an option takes: "FILE"; nothing for a flag.
_kemvi_value() {
    local names value
    _kemvi_options "$1" | while read -r names value; do
        if [[ ,$names, == *",$2,"* && $value == [A-Z]* && $value != @(Excludes|Needs):* ]]; then printf '%s\n' "${value%% *}"; fi
    done
}

# The options of -o, with "=" where a value belongs to them.
_kemvi_mount_options() {
    _kemvi_help mount | sed -n '/^Mount options:/,/^[^ M]/s/^  \([a-z].*\)/\1/p' | sed 's/  .*//; s/\([^,]\) [a-z].*/\1/' |
        tr ', ' '\n\n' | sed -n 's/^\([a-z_]\{2,\}=\{0,1\}\)[A-Z]*\([a-z|]*\)$/\1/p'
}

# The mount points of this kind, from the kernel's table.
_kemvi_mount_points() {
    local point rest
    while read -r _ _ _ _ point rest; do
        [[ $rest == *" - fuse.kemvi "* ]] && printf '%b\n' "${point//\\/\\0}"
    done </proc/self/mountinfo
}

# Replies with what begins as the word does, one candidate per line of input.
_kemvi_offer() {
    local candidate
    while IFS= read -r candidate; do
        [[ -n $candidate && $candidate == "$1"* ]] && COMPREPLY+=("$candidate")
    done
}

# The same for names of files, which the shell then quotes.
_kemvi_offer_files() {
    compopt -o filenames 2>/dev/null
    _kemvi_offer "$2" < <(compgen "$1" -- "$2")
}

_kemvi_offer_mount_points() {
    compopt -o filenames 2>/dev/null
    _kemvi_offer "$1" < <(_kemvi_mount_points)
    ((${#COMPREPLY[@]})) || _kemvi_offer_files -d "$1"
}

# The word is a list, of which the last part is completed. The shell takes "=" for the end of a word.
_kemvi_offer_mount_option() {
    local before=${1%"${1##*,}"} part=${1##*,}
    compopt -o nospace 2>/dev/null
    case $part in
    placement=*) _kemvi_offer "${part#*=}" <<<$'auto\noff' ;;
    on_death=*) _kemvi_offer "${part#*=}" <<<$'fail\nexit\nrestart' ;;
    log_level=*) _kemvi_offer "${part#*=}" <<<$'debug\ninfo\nwarning\nerror' ;;
    *=*) ;;
    *)
        _kemvi_offer "$1" < <(_kemvi_mount_options | sed "s|^|${before//|/}|")
        [[ $before == *=* ]] && COMPREPLY=("${COMPREPLY[@]#"${before%"${before##*=}"}"}")
        ;;
    esac
}

_kemvi_offer_value() {
    case $1 in
    FILE* | PATH | HELPER | SCRIPT) _kemvi_offer_files -f "$2" ;;
    DIR | SOURCE) _kemvi_offer_files -d "$2" ;;
    LEVEL) _kemvi_offer "$2" <<<$'debug\ninfo\nwarning\nerror' ;;
    OPTION,...) _kemvi_offer_mount_option "$2" ;;
    esac
}

# The arguments of a command that are no options, by their names in its help.
_kemvi_offer_argument() {
    local usage arguments
    usage=$(_kemvi_help "$1" | sed -n 's/^Usage: kemvi [a-z]* //p')
    read -ra arguments <<<"${usage//\[OPTIONS\]/}"
    ((${#arguments[@]})) || return
    local place=$(($2 < ${#arguments[@]} ? $2 : ${#arguments[@]} - 1))
    local name=${arguments[place]//[^A-Z]/}
    case $1:$name in
    mount:MOUNTPOINT) _kemvi_offer_files -d "$3" ;;
    *:MOUNTPOINT*) _kemvi_offer_mount_points "$3" ;;
    invalidate:*) ;; # paths of the served tree
    *) _kemvi_offer_value "$name" "$3" ;;
    esac
}

_kemvi() {
    COMPREPLY=()
    local line=${COMP_LINE:0:COMP_POINT} word=${COMP_WORDS[COMP_CWORD]} before= value
    local command=${COMP_WORDS[1]-}
    if ((COMP_CWORD == 1)); then
        case $word in
        -*) _kemvi_offer "$word" < <(_kemvi_help | sed -n 's/^  \(-[^ ]*\).*/\1/p' | tr , '\n') ;;
        *) _kemvi_offer "$word" < <(_kemvi_commands | tr ' ' '\n'; echo help) ;;
        esac
        return
    fi
    if [[ $command == help ]]; then
        ((COMP_CWORD == 2)) && _kemvi_offer "$word" < <(_kemvi_commands | tr ' ' '\n')
        return
    fi
    # A list of mount options is several words for the shell.
    [[ $line =~ [[:space:]]-o[[:space:]]*([^[:space:]]*)$ ]] && [[ $(_kemvi_value "$command" -o) == OPTION,... ]] && {
        _kemvi_offer_mount_option "${BASH_REMATCH[1]}"
        return
    }
    before=${COMP_WORDS[COMP_CWORD - 1]}
    [[ $before == = ]] && before=${COMP_WORDS[COMP_CWORD - 2]}
    if [[ $before == -* ]] && value=$(_kemvi_value "$command" "$before") && [[ -n $value ]]; then
        _kemvi_offer_value "$value" "${word#=}"
    elif [[ $word == -* ]]; then
        _kemvi_offer "$word" < <(_kemvi_options "$command" | sed 's/ .*//' | tr , '\n')
    else
        local index arguments=0
        for ((index = 2; index < COMP_CWORD; index++)); do
            if [[ ${COMP_WORDS[index]} == -* ]]; then
                [[ -n $(_kemvi_value "$command" "${COMP_WORDS[index]}") ]] && ((index++))
            else
                ((arguments++))
            fi
        done
        _kemvi_offer_argument "$command" "$arguments" "$word"
    fi
}

complete -F _kemvi kemvi
