# Completion of vek-plot's command line for bash.

_vek_plot() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local options='--output --open --follow --select --since --until --counter --gauge --range-unit
    --svg --png --trace --help'
  COMPREPLY=()
  case $previous in
    --range-unit)
      mapfile -t COMPREPLY < <(compgen -W 's ms us ns' -- "$current")
      return
      ;;
    --since | --until)
      mapfile -t COMPREPLY < <(compgen -W '-10m -1h -1d' -- "$current")
      return
      ;;
    --select | --counter | --gauge)
      return
      ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  else
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -F _vek_plot vek-plot
