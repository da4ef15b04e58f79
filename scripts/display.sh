# To be sourced: a private X server for tests, the demo and the benches. `startDisplay WIDTHxHEIGHT` starts one and sets
# DISPLAY and displayProcess; `stopDisplay` ends it, and does nothing where there is none.
displayProcess=

startDisplay() {
    local answer
    answer=$(mktemp)
    Xvfb -displayfd 3 -screen 0 "$1x24" -nolisten tcp -noreset 3>"$answer" 2>/dev/null &
    displayProcess=$!
    for _ in $(seq 200); do
        [ -s "$answer" ] && break
        kill -0 "$displayProcess" || { echo "Xvfb does not start" >&2; return 1; }
        sleep 0.1
    done
    DISPLAY=:$(cat "$answer")
    rm -f "$answer"
    [ "$DISPLAY" != : ] || { echo "Xvfb does not answer" >&2; return 1; }
    export DISPLAY
}

stopDisplay() {
    [ -n "$displayProcess" ] || return 0
    kill "$displayProcess" 2>/dev/null || true
    wait "$displayProcess" 2>/dev/null || true
    displayProcess=
}

# grabDisplay FILE: the pixels of the screen, as bytes R G B where the name ends in .rgb, else as a PNG file.
grabDisplay() {
    local format=()
    [[ $1 == *.rgb ]] && format=(-f rawvideo -pix_fmt rgb24)
    ffmpeg -nostdin -v error -y -f x11grab -draw_mouse 0 -i "$DISPLAY" -frames:v 1 "${format[@]}" "$1"
}
