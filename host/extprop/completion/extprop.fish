# Fish completion for extprop, which says itself what a word may become.
function __extprop_complete
    set -l words (commandline -opc)
    set -l tool $words[1]
    set -e words[1]
    set -l found ($tool complete $words (commandline -ct) 2>/dev/null)
    if test (count $found) -gt 0
        printf '%s\n' $found
    else
        __fish_complete_path (commandline -ct)
    end
end
complete -c extprop -f -a '(__extprop_complete)'
