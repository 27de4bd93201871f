"""What bench/compare has done, by whom, and what is to be reached."""

OURS, LIMIT = "tarn", "libav"

# Another way of theirs to do the same.
READER, CONVERTING = "tarn, FrameReader", "libav, converting all"
OTHER_WAYS = {"seek": [(OURS, "reader-seek", READER), (LIMIT, "seek-converting", CONVERTING)]}

# Label, task, source, whether there is an output, by whom, and the marks: to the loop, to a peer.
WORK = [
    ("open and first picture, 1080p H.264", "first-frame", "h264-1080p.mp4", "", None, None),
    ("decode to RGB, 1080p H.264", "decode-rgb", "h264-1080p.mp4", "", 1.02, 1.00),
    ("decode to NV12, 1080p H.264", "decode-nv12", "h264-1080p.mp4", "", 1.02, 1.00),
    ("1080p to RGB as tagged", "tagged-rgb", "h264-1080p-709.mp4", "own-index", None, None),
    ("1080p to 224 × 398 RGB", "small-rgb", "h264-1080p-709.mp4", "own-index", None, None),
    ("10-bit 1080p to 16-bit RGB", "deep-rgb", "h264-1080p-10bit.mp4", "own-index", None, None),
    ("a batch of 32 into the caller's memory", "batch", "h264-1080p-709.mp4", "own-index", None, None),
    ("decode to RGB, 480p H.264", "decode-rgb", "h264-480p.mp4", "", 1.02, 1.00),
    ("decode to RGB, 480p HEVC", "decode-rgb", "hevc-480p.mp4", "", 1.02, 1.00),
    ("decode to RGB, 480p VP9", "decode-rgb", "vp9-480p.webm", "", 1.02, 1.00),
    ("decode to NV12, 480p H.264", "decode-nv12", "h264-480p.mp4", "", 1.02, 1.00),
    ("decode to NV12, 480p HEVC", "decode-nv12", "hevc-480p.mp4", "", 1.02, 1.00),
    ("decode to NV12, 480p VP9", "decode-nv12", "vp9-480p.webm", "", 1.02, 1.00),
    ("make the index, 1 GB", "index", "big.mp4", "", 1.03, 0.50),
    ("load the index", "load-index", "long-groups.mp4", "index", None, None),
    ("16 random seeks, groups of 250", "seek", "long-groups.mp4", "index", 0.85, 1.00),
    ("decode AAC to float", "decode-sound", "sound.m4a", "", 1.05, 0.70),
    ("decode FLAC to float", "decode-sound", "sound.flac", "", 1.05, 0.70),
    ("decode PCM to float", "decode-sound", "sound.wav", "", 1.05, 0.70),
    ("encode H.264 from RGB, 720p", "encode-pictures", "pictures.rgb", "mp4", 1.02, 1.00),
    ("encode AAC", "encode-sound", "sound.f32", "mp4", None, None),
    ("remux, 1 GB", "remux", "big.mp4", "mp4", 1.05, None),
    ("read PNG", "read-image", "picture.png", "", 1.05, None),
    ("read JPEG", "read-image", "picture.jpg", "", 1.05, None),
    ("write PNG", "write-image", "pictures.rgb", "png", 1.05, None),
    ("write JPEG", "write-image", "pictures.rgb", "jpg", 1.05, None),
]

# Whom a mark is measured by, where it is not the plain loop or the fastest peer.
MARK_LOOP = {"seek": CONVERTING}
MARK_PEER = {"index": "ffms2", "decode-sound": "pyav"}
