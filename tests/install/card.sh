# Sourced by the scripts in this folder: a sound, the virtual sound card, and its recording.
# shellcheck shell=bash

# make_sound FILE: a second of a tone.
make_sound() {
    sox -n -R -r 48000 -c 2 -b 16 "$1" synth 1 sine 440 gain -6
}

# use_virtual_card TOOL RECORD [OPTION…]: makes ALSA use only the virtual card, configured by the tool
# virtualcard-config. Its names are "card" and "default", and it waits for a slow machine.
use_virtual_card() {
    local tool="$1" record="$2"
    shift 2
    sh "$tool" --name card --default --starve wait --speed 8 --record "$record" "$@" \
        >"$record.conf"
    export ALSA_CONFIG_PATH=$record.conf
}

# is_heard RECORD: whether the recording is about as loud as the sound of make_sound.
is_heard() {
    sox "$1" -n stat 2>&1 | awk '/^Maximum amplitude/ { loudest = $3 } END { exit !(loudest > 0.4) }'
}
