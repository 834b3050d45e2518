# Completion of a program of Vox for fish, with the words of the completion for bash. It is installed under each program's name.

set -g __vox_offer (path resolve (status dirname)/../../vox-tools/offer)

function __vox_complete
    set -l word (commandline -ct)
    set -l plain (string unescape -- "$word"; or echo "$word")
    set -l words (commandline -opc)
    set -l offers (bash $__vox_offer $words "$plain" 2>/dev/null)
    switch $status
        case 0
            printf '%s\n' $offers
        case 3
            set -l option (string match -r -- '^--[^=]*=' "$plain")
            for file in (__fish_complete_path (string replace -- "$option" '' "$plain"))
                echo "$option$file"
            end
        case 4
            set -e words[1..$offers[1]]
            complete -C (string join ' ' -- (string escape -- $words) "$word")
    end
end

complete -c (string replace -r '\.fish$' '' (status basename)) -f -a '(__vox_complete)'
