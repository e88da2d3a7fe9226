# Completion of kemvi's commands, options and mount points for fish. It asks the command itself what there is to complete
# (kemvi help), so that both always agree, and asks nothing of what is mounted, behind which a helper may hang.

function __kemvi_help --description 'The help of a command, or of kemvi'
    set -l program (commandline -opc)[1]
    $program help $argv 2>/dev/null
end

function __kemvi_commands
    __kemvi_help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z, -]*[a-z]\)  *\(.*\)/\1:\2/p' | while read -l -d : names text
        for name in (string split ', ' -- $names)
            printf '%s\t%s\n' $name $text
        end
    end
    printf 'help\tTell more of a command\n'
end

function __kemvi_options --description 'Its lines of options: "-f,--foreground", "--log-file FILE"'
    __kemvi_help $argv[1] | sed -n 's/^  \(-[^ ]*\( [^ ]\{1,\}\)*\).*/\1/p'
end

function __kemvi_value --description 'What an option takes: "FILE"; nothing for a flag'
    for line in (__kemvi_options $argv[1])
        set -l parts (string split ' ' -- $line)
        if contains -- $argv[2] (string split , -- $parts[1]); and string match -qr '^[A-Z]' -- "$parts[2]"
            string match -qr '^(Excludes|Needs):' -- $parts[2]; or echo $parts[2]
            return
        end
    end
end

function __kemvi_mount_points --description 'From the table of the kernel'
    while read -l line
        if string match -q '* - fuse.kemvi *' -- $line
            printf '%b\n' (string replace -a '\\' '\\0' -- (string split ' ' -- $line)[5])
        end
    end </proc/self/mountinfo
end

function __kemvi_mount_options --description 'The word is a list, of which the last part is completed'
    set -l word (commandline -ct)
    set -l before (string match -r '^.*,' -- $word)
    switch (string replace -r '^.*,' '' -- $word)
        case 'placement=*'
            printf '%s\n' "$before"placement={auto,off}
        case 'on_death=*'
            printf '%s\n' "$before"on_death={fail,exit,restart}
        case 'log_level=*'
            printf '%s\n' "$before"log_level={debug,info,warning,error}
        case '*=*'
        case '*'
            for name in (__kemvi_help mount | sed -n '/^Mount options:/,/^[^ M]/s/^  \([a-z].*\)/\1/p' |
                    sed 's/  .*//; s/\([^,]\) [a-z].*/\1/' | tr ', ' '\n\n' |
                    sed -n 's/^\([a-z_]\{2,\}=\{0,1\}\)[A-Z]*\([a-z|]*\)$/\1/p')
                printf '%s\n' "$before$name"
            end
    end
end

function __kemvi_of_kind
    switch $argv[1]
        case 'FILE*' PATH HELPER SCRIPT
            __fish_complete_path (commandline -ct)
        case DIR SOURCE
            __fish_complete_directories (commandline -ct)
        case LEVEL
            printf '%s\n' debug info warning error
        case 'OPTION,...'
            __kemvi_mount_options
    end
end

function __kemvi_argument --description 'The argument of a command, by its name in the help'
    set -l usage (__kemvi_help $argv[1] | sed -n 's/^Usage: kemvi [a-z]* //p; ' | string replace '[OPTIONS]' '')
    set -l arguments (string split -n ' ' -- $usage)
    test (count $arguments) -gt 0; or return
    set -l place (math min $argv[2], (count $arguments))
    set -l name (string replace -ar '[^A-Z]' '' -- $arguments[$place])
    switch $argv[1]:$name
        case mount:MOUNTPOINT
            __fish_complete_directories (commandline -ct)
        case '*:MOUNTPOINT*'
            __kemvi_mount_points
        case 'invalidate:*'
        case '*'
            __kemvi_of_kind $name
    end
end

function __kemvi_complete
    set -l words (commandline -opc)
    set -l word (commandline -ct)
    if test (count $words) -eq 1
        switch "$word"
            case '-*'
                printf '%s\n' -h --help -V --version
            case '*'
                __kemvi_commands
        end
        return
    end
    set -l command $words[2]
    if test $command = help
        test (count $words) -eq 2; and __kemvi_commands
        return
    end
    set -l value (__kemvi_value $command $words[-1])
    if test -n "$value"
        __kemvi_of_kind $value
    else if string match -q -- '-*' "$word"
        for line in (__kemvi_options $command)
            string split , -- (string split ' ' -- $line)[1]
        end
    else
        set -l arguments 1
        set -l isValue no
        for given in $words[3..]
            if test $isValue = yes
                set isValue no
            else if string match -q -- '-*' $given
                test -n "$(__kemvi_value $command $given)"; and set isValue yes
            else
                set arguments (math $arguments + 1)
            end
        end
        __kemvi_argument $command $arguments
    end
end

complete -c kemvi -f -a '(__kemvi_complete)'
