#include "tools/tlx/completion.h"

namespace tlx {
namespace {

// Bash splits words at colons and equals signs, and replaces only what is behind the last of them.
constexpr std::string_view kBash =
    R"sh(# Completions of tlx and tessel for bash; made by 'tlx completion bash'.

_tessel_tlx() {
  local line word joined=false words=()
  COMPREPLY=()
  for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
    if [[ ${#words[@]} -gt 0 && ( $joined == true || $word == [:=] ) ]]; then
      words[-1]+=$word
    else
      words+=("$word")
    fi
    [[ $word == [:=] ]] && joined=true || joined=false
  done
  while IFS= read -r line; do
    case $line in
      :files)
        compopt -o filenames
        while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -f -- "$2")
        ;;
      :folders)
        compopt -o filenames
        while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -d -- "$2")
        ;;
      "$2"*) COMPREPLY+=("${line%%$'\t'*}") ;;
    esac
  done < <(tlx --complete "${1##*/}" "${words[@]}" 2>/dev/null)
}
complete -F _tessel_tlx tlx tessel
)sh";

constexpr std::string_view kZsh = R"sh(#compdef tlx tessel
# Completions of tlx and tessel for zsh; made by 'tlx completion zsh'.

_tessel_tlx() {
  local line
  local -a candidates
  for line in "${(@f)$(tlx --complete ${words[1]:t} "${(@Q)words[2,CURRENT]}" 2>/dev/null)}"; do
    case $line in
      (:files) _files ;;
      (:folders) _files -/ ;;
      (?*) candidates+=("${${line%%$'\t'*}//:/\\:}:${line#*$'\t'}") ;;
    esac
  done
  (( $#candidates )) && _describe -V candidate candidates
}

if [[ $funcstack[1] == _tlx ]]; then
  _tessel_tlx "$@"
else
  compdef _tessel_tlx tlx tessel
fi
)sh";

constexpr std::string_view kFish =
    R"sh(# Completions of tlx and tessel for fish; made by 'tlx completion fish'.

function __tessel_tlx
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l program (string replace -r '.*/' '' -- $words[1])
    for line in (tlx --complete $program $words[2..-1] "$current" 2>/dev/null)
        switch $line
            case ':files'
                __fish_complete_path "$current"
            case ':folders'
                __fish_complete_directories "$current"
            case '*'
                echo $line
        end
    end
end
complete -c tlx -f -a '(__tessel_tlx)'
complete -c tessel -f -a '(__tessel_tlx)'
)sh";

}  // namespace

std::string_view CompletionScript(cvn::StringView shell) {
  return shell == u"bash" ? kBash : shell == u"zsh" ? kZsh : shell == u"fish" ? kFish : "";
}

}  // namespace tlx
