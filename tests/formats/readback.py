#!/usr/bin/python3
"""Lets other programs read what the serializer and tovfile write: every pixel type in every format, in odd sizes.

readback.py READER FORMATWRITER TOVFILE FORMATS.MD

Prints what came back otherwise than it was written. Exit status: 0, 1, or 77 where the reader is not installed.
"""
import collections
import io
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import traceback
import zlib

CODECS = ["Uncompressed", "MJPEG", "FFV1", "H.264"]
LOSSY = ["jpg", "MJPEG", "H.264"]
STILLS = ["bmp", "jpg", "png", "tif"]
TYPES_AT_ONCE = 10

# What formatwriter tells: `path` holds pictures of height x across x samples, each of so many bytes, as in `expected`.
File = collections.namedtuple("File", "type code width height across samples bytes path expected")

READER, WRITER, TOVFILE, PAGE = sys.argv[1:]


class NotInstalled(Exception):
    pass


def need(program):
    if not shutil.which(program):
        raise NotInstalled(program)


def run(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True).stdout


def bytes_of(path):
    return pathlib.Path(path).read_bytes()


def format_of(file):
    return pathlib.Path(file.path).relative_to(folder).parts[-3 if file.path.endswith(".nhdr") else -2]


# ---- Readers: each takes all files and returns a function that gives the pixels of one, or fails --------------------


def by_ffmpeg(files):
    need("ffmpeg")
    names = {(1, 1): "gray", (1, 2): "gray16le", (3, 1): "rgb24", (3, 2): "rgb48le"}
    decoded = {}
    for begin in range(0, len(files), 50):
        inputs, outputs = [], []
        for number, file in enumerate(files[begin:begin + 50]):
            decoded[file] = file.path + ".decoded"
            inputs += ["-threads", "1", "-i", file.path]
            outputs += ["-map", str(number), "-fps_mode", "passthrough", "-f", "rawvideo",
                        "-pix_fmt", names[file.samples, file.bytes], decoded[file]]
        run("ffmpeg", "-v", "error", "-nostdin", *inputs, *outputs)
    return lambda file: bytes_of(decoded[file])


def by_imagemagick(files):
    need("convert")
    decoded = {}
    for samples, size in sorted({(file.samples, file.bytes) for file in files}):
        alike = [file for file in files if (file.samples, file.bytes) == (samples, size)]
        pixels = run("convert", *(file.path for file in alike), "-depth", str(8 * size), "-endian", "LSB",
                     "gray:-" if samples == 1 else "rgb:-")
        stream = io.BytesIO(pixels)
        for file in alike:
            decoded[file] = stream.read(file.width * file.height * samples * size)
    return decoded.get


def by_gdal(_):
    from osgeo import gdal
    gdal.UseExceptions()
    gdal.SetConfigOption("GDAL_DISABLE_READDIR_ON_OPEN", "TRUE")  # or it lists the folder for each file

    def pixels(path):
        array = gdal.Open(path).ReadAsArray()
        return (np.moveaxis(array, 0, 2) if array.ndim == 3 else array).tobytes()

    def read(file):
        if not file.path.endswith(".nhdr"):
            return pixels(file.path)
        header, frames = file.path[:-4] + "hdr", raw_frames(file)
        if file.across * file.height * file.samples * file.bytes < 2 or not os.path.exists(header):
            return None  # GDAL opens no file of a single byte; samples that take no whole bytes have no such header
        for frame in frames:
            os.symlink(header, frame[:-3] + "hdr")
        return b"".join(map(pixels, frames))

    return read


def by_unu(_):
    need("teem-unu")
    return lambda file: run("teem-unu", "save", "-f", "nrrd", "-e", "raw", "-i", file.path).partition(b"\n\n")[2]


def by_vtk(_):
    from vtkmodules.util.numpy_support import vtk_to_numpy
    from vtkmodules.vtkIOImage import vtkNrrdReader

    def read(file):
        if file.samples == 1 and file.across <= 9:
            return None  # which it takes for samples of a pixel
        reader = vtkNrrdReader()
        reader.SetFileName(file.path)
        reader.Update()
        return vtk_to_numpy(reader.GetOutput().GetPointData().GetScalars()).tobytes()

    return read


def by_h5py(_):
    import h5py
    try:
        import silx.io
    except ImportError:
        print("no silx here (python3-silx): h5py alone has read the files")
        silx = None

    def read(file):
        with h5py.File(file.path) as contents:
            frames, attributes = contents["frames"], contents["frames"].attrs
            shape = (2, file.height, file.across) + (() if file.samples == 1 else (file.samples,))
            assert frames.shape == shape and frames.dtype == f"<u{file.bytes}", (frames.shape, frames.dtype)
            assert attributes["pixel_type"].decode() == file.type and attributes["pixel_code"] == file.code
            assert mosaic_of(file) in (None, attributes.get("mosaic", b"").decode())
            assert list(contents["frame_id"]) == [1, 2] and list(contents["timestamp"]) == [1001, 1002]
            pixels = frames[()].tobytes()
        if silx:
            with silx.io.open(file.path) as contents:
                assert contents["frames"][()].tobytes() == pixels
        return pixels

    return read


def by_page(_):
    """As docs/formats.md describes them, with the lines of Python that stand there."""
    page = {}
    exec(bytes_of(PAGE).decode().split("```python\n")[1].split("```")[0], page)

    def read(file):
        data = bytes_of(file.path)
        if not file.path.endswith(".nhdr"):
            return b"".join(records(file, data))
        samples = b"".join(frame.astype("<u2").tobytes() for frame in page["read_series"](file.path))
        assert samples == bytes_of(file.path + ".samples")
        assert f"tov mosaic:={mosaic_of(file) or ''}" in data.decode() or not mosaic_of(file)
        return b"".join(map(bytes_of, raw_frames(file)))

    return read


def by_any(files):
    by_other = by_ffmpeg([file for file in files if not file.path.endswith((".nhdr", ".tvm", ".raw"))])
    readers = {".nhdr": by_page(files), ".tvm": by_page(files), ".raw": lambda file: bytes_of(file.path)}
    return lambda file: readers.get(pathlib.Path(file.path).suffix, by_other)(file)


def raw_frames(file):
    """Of a series, as its table lists them."""
    table = bytes_of(file.path[:-4] + "frames.csv").decode().splitlines()[1:]
    return [os.path.normpath(os.path.join(os.path.dirname(file.path), row.split(",")[1])) for row in table]


def mosaic_of(file):
    """The colours of its filters; None for a pattern that is not checked."""
    if file.type.startswith("TrueSense"):
        return "WRWGRWGWWGWBGWBW" if file.type == "TrueSense_RGGB_WRRW_0_8" else None
    bayer = {"GR": "GRBG", "RG": "RGGB", "GB": "GBRG", "BG": "BGGR"}
    return bayer[file.type[5:7]] if file.type.startswith("Bayer") else ""


def records(file, data):
    """The pixels of the frames of a tvi or tvm file."""
    movie, offsets = file.path.endswith(".tvm"), [0]
    if movie:
        kind, version, at, alignment, rate, scale, count, index = struct.unpack_from("<8s5I2Q", data)
        assert (kind, version, rate, scale, count) == (b"TOVMOVIE", 1, 25, 1, 2)
        assert at % alignment == 0 and zlib.crc32(data[:60]) == struct.unpack_from("<I", data, 60)[0]
        kind, version, check, count = struct.unpack_from("<8s2IQ", data, index)
        assert (kind, version, count) == (b"TOVINDEX", 1, 2) and check == zlib.crc32(data[index + 16:])
        offsets = struct.unpack_from("<2Q", data, index + 32)
        assert offsets[0] == at
    for number, at in enumerate(offsets):
        (kind, version, head, code, width, height, _, check, line, size, record, place, stamp, identity, _,
         own) = struct.unpack_from("<8s7I7QI", data, at)
        pixels = data[at + head:at + head + size]
        assert (kind, version) == (b"TOVFRAME" if movie else b"TOVIMAGE", 1)
        assert (code, width, height, place) == (file.code, file.width, file.height, number)
        assert (line, size) == (file.across * file.samples * file.bytes, line * height) and stamp == 1000 + identity
        assert (check, own) == (zlib.crc32(pixels), zlib.crc32(data[at:at + 92]))
        assert at + record == (offsets[1:] + (index,))[number] if movie else record == len(data)
        yield pixels


# ---- What tovfile makes of them --------------------------------------------------------------------------------------


def export(files):
    """Raw series and movies as all that they can become."""
    series = [os.path.dirname(file.path) for file in files if file.path.endswith(".nhdr")]
    run(TOVFILE, "check", *series)
    formats = {format_of(file) for file in files}
    for name in formats - {"raw"}:
        form = ["-f", "avi", "-c", name] if name in CODECS else ["-f", name]
        run(TOVFILE, "export", "-s", "25", "-o", f"{folder}/x/{name}", *form, *series)
    exported = [file._replace(path=file.path.replace(folder, folder + "/x")) for file in files
                if format_of(file) != "raw"]
    if "h5" in formats:
        run(TOVFILE, "export", "-z", "-f", "h5", "-o", f"{folder}/z/h5", *series)
        exported += [file._replace(path=file.path.replace(folder + "/x", folder + "/z")) for file in exported]
    return exported


READERS = {  # of which types, and whether tovfile exports them
    "imagemagick": (by_imagemagick, "all", STILLS, False),
    "ffmpeg": (by_ffmpeg, "all", CODECS, False),
    "gdal": (by_gdal, "all", ["raw"], False),
    "gdal_stills": (by_gdal, "layouts", STILLS, False),
    "unu": (by_unu, "all", ["raw"], False),
    "vtk": (by_vtk, "all", ["raw"], False),
    "h5py": (by_h5py, "all", ["h5"], False),
    "page": (by_page, "all", ["raw", "tvi", "tvm"], False),
    "tovfile": (by_any, "layouts", ["raw", "tif", "png", "tvm"] + CODECS, True),
    "tovfile_h5": (by_h5py, "layouts", ["raw", "h5"], True),
}


def compare(file, found):
    expected, found = (np.frombuffer(pixels, f"<u{file.bytes}") for pixels in (bytes_of(file.expected), found))
    assert found.size == expected.size, f"{found.size} samples instead of {expected.size}"
    expected, found = (pixels.reshape(-1, file.height, file.across, file.samples) for pixels in (expected, found))
    if format_of(file) in LOSSY:  # of a series' pictures the first one is noise, which no such codec keeps
        error = np.abs(found[-1].astype(int) - expected[-1]).mean(axis=(1, 2)).max()
        assert error < 4, f"a line differs by {error:.1f} levels"
    else:
        assert (found == expected).all(), f"{(found != expected).sum()} of {found.size} samples differ"


def main():
    make, types, formats, exports = READERS[READER]
    wrong = right = first = 0
    while True:
        listed = run(WRITER, folder, types, str(first), str(TYPES_AT_ONCE), *formats).decode()
        files = [File(*(int(field) if field.isdigit() else field for field in line.split("\t")))
                 for line in listed.splitlines()]
        if not files:
            break
        if exports:
            files = export(files)
        read = make(files)
        for file in files:
            try:
                found = read(file)
                if found is not None:
                    compare(file, found)
                    right += 1
            except Exception:
                print(file.path, traceback.format_exc(limit=-1))
                wrong += 1
        shutil.rmtree(folder)
        first += TYPES_AT_ONCE
    print(f"{READER}: {right} files as they were written, {wrong} not")
    return 1 if wrong or not right else 0


with tempfile.TemporaryDirectory(prefix="tov-formats-", ignore_cleanup_errors=True) as folder:
    try:
        import numpy as np
        status = main()
    except (ImportError, NotInstalled) as error:
        print(f"{READER} has not read the files: {error}")
        status = 77
sys.exit(status)
