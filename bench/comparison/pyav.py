"""The work of work.h by PyAV: pyav.py TASK FILE [OUTPUT]"""

import sys

import av

RAW_WIDTH, RAW_HEIGHT, RAW_ROUNDS = 1280, 720, 8
IMAGE_REPEATS = 10


def open_video(source):
    container = av.open(source)
    stream = container.streams.video[0]
    stream.thread_type = "AUTO"
    return container, stream


def decode(source, pixel_format, most=None):
    count = 0
    container, stream = open_video(source)
    for frame in container.decode(stream):
        if frame.reformat(format=pixel_format):
            count += 1
        if count == most:
            break
    return count


def decode_tagged(source, _, pixel_format, width=None, height=None):
    count = 0
    container, stream = open_video(source)
    for frame in container.decode(stream):
        if frame.reformat(width, height, pixel_format, src_colorspace="ITU709"):
            count += 1
    return count


def batch(source, _):
    import numpy

    container, stream = open_video(source)
    frames = [i * stream.frames // 32 for i in range(32)]
    memory = numpy.empty((32, stream.height, stream.width, 3), numpy.uint8)
    done = 0
    for number, frame in enumerate(container.decode(stream)):
        while done < len(frames) and frames[done] == number:
            memory[done] = frame.reformat(format="rgb24", src_colorspace="ITU709").to_ndarray()
            done += 1
    return done


def index(source):
    container, stream = open_video(source)
    return len(sorted(p.pts for p in container.demux(stream) if p.size))


def frames_to_seek(count):
    frame = 0
    for _ in range(16):
        frame = (frame + count * 5 // 8 + 1) % count
        yield frame


def seek(source, _):
    container, stream = open_video(source)
    times = sorted(p.pts for p in container.demux(stream) if p.size)
    found = 0
    for number in frames_to_seek(len(times)):
        container.seek(times[number], stream=stream)
        for frame in container.decode(stream):
            if frame.pts >= times[number]:
                frame.reformat(format="rgb24")
                found += 1
                break
    return found


def decode_sound(source):
    container = av.open(source)
    resampler = av.AudioResampler(format="flt")
    samples = 0
    for frame in container.decode(audio=0):
        for converted in resampler.resample(frame):
            samples += converted.samples
            converted.to_ndarray()
    return samples


def encode_pictures(source, target):
    import numpy

    raw = numpy.fromfile(source, numpy.uint8).reshape(-1, RAW_HEIGHT, RAW_WIDTH, 3)
    with av.open(target, "w") as container:
        settings = {"preset": "veryfast", "level": "51", "bf": "0"}
        stream = container.add_stream("libx264", rate=25, options=settings)
        stream.width, stream.height, stream.pix_fmt = RAW_WIDTH, RAW_HEIGHT, "yuv420p"
        stream.bit_rate = 0  # PyAV's own is 1 Mbit/s; the others have x264's quality 23
        stream.thread_type, stream.codec_context.thread_count = "FRAME", 0
        for n in range(RAW_ROUNDS * len(raw)):
            frame = av.VideoFrame.from_ndarray(raw[n % len(raw)], format="rgb24")
            container.mux(stream.encode(frame))
        container.mux(stream.encode())
    return RAW_ROUNDS * len(raw)


def read_image(source):
    pixels = 0
    for _ in range(IMAGE_REPEATS):
        with av.open(source) as container:
            frame = next(container.decode(video=0)).reformat(format="rgb24")
            pixels += frame.width * frame.height
    return pixels


TASKS = {
    "first-frame": lambda source: decode(source, "rgb24", 1),
    "decode-rgb": lambda source: decode(source, "rgb24"),
    "tagged-rgb": lambda *paths: decode_tagged(*paths, "rgb24"),
    "small-rgb": lambda *paths: decode_tagged(*paths, "rgb24", 398, 224),
    "deep-rgb": lambda *paths: decode_tagged(*paths, "rgb48le"),
    "batch": batch,
    "decode-nv12": lambda source: decode(source, "nv12"),
    "index": index,
    "seek": seek,
    "decode-sound": decode_sound,
    "encode-pictures": encode_pictures,
    "read-image": read_image,
}

if sys.argv[1] not in TASKS:
    sys.exit(2)
av.logging.restore_default_callback()
print(TASKS[sys.argv[1]](*sys.argv[2:]))
