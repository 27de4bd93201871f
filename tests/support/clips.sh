# shellcheck shell=bash
# What scripts that make clips with the ffmpeg program have in common. They source this file; `clip`
# then writes into the current folder.

run() { nice -n 5 ffmpeg -hide_banner -loglevel error -nostdin -y -threads 2 "$@"; }

# clip NAME FFMPEG_ARGUMENTS...: the output's name comes last, as FFmpeg wants it. What is there already
# stays. A clip that this ffmpeg cannot make is reported and left out.
clip() {
    local name=$1
    shift
    [ -s "$name" ] || run "$@" "unfinished-$name" && [ -s "unfinished-$name" ] && mv "unfinished-$name" "$name" ||
        [ -s "$name" ] || { echo "left out: $name" >&2; rm -f "unfinished-$name"; }
}

# Used by the scripts that source this.
# shellcheck disable=SC2034
{
    x264=(-c:v libx264 -preset veryfast -crf 25 -pix_fmt yuv420p -g 50 -bf 3)
    openGop=(-x264-params open-gop=1)
    closedGop=(-x264-params open-gop=0)
    fragments=(-movflags frag_keyframe+empty_moov+default_base_moof)
}
