#!/usr/bin/env python3
"""Makes the stills of this folder with ImageMagick and oiiotool, all from one small picture that stills_test.cpp knows by
its formula. Run here when a kind is added; the files are kept.

    pixel (x, y) of 19 x 13: red 13 x, green 19 y, blue 5 x y mod 256, alpha 255 - 9 x (of the files with "alpha")
"""
import os
import struct
import subprocess

WIDTH, HEIGHT = 19, 13


def run(*command):
    subprocess.run(command, check=True)


def pam(name, alpha):
    data = bytearray()
    for y in range(HEIGHT):
        for x in range(WIDTH):
            data += bytes([13 * x, 19 * y, 5 * x * y % 256] + ([255 - 9 * x] if alpha else []))
    depth, kind = (4, "RGB_ALPHA") if alpha else (3, "RGB")
    with open(name, "wb") as file:
        file.write(f"P7\nWIDTH {WIDTH}\nHEIGHT {HEIGHT}\nDEPTH {depth}\nMAXVAL 255\nTUPLTYPE {kind}\nENDHDR\n".encode())
        file.write(data)


def run_lengths(samples):
    """One row of a Softimage picture's packet: stretches of equal samples, and of up to 128 others."""
    out, at = bytearray(), 0
    while at < len(samples):
        run = 1
        while run < 120 and at + run < len(samples) and samples[at + run] == samples[at]:
            run += 1
        if run > 1:
            out += bytes([127 + run]) + bytes(samples[at])
        else:
            while at + run < len(samples) and run < 128 and samples[at + run] != samples[at + run - 1]:
                run += 1
            out += bytes([run - 1]) + b"".join(bytes(sample) for sample in samples[at:at + run])
        at += run
    return out


def softimage(name, alpha, packed):
    """No program here writes these."""
    kind, packets = 2 if packed else 0, [(0xE0, (0, 1, 2))] + ([(0x10, (3,))] if alpha else [])
    data = struct.pack(">If80s4sHHfHH", 0x5380F634, 3.71, b"", b"PICT", WIDTH, HEIGHT, 1.0, 3, 0)
    for i, (channels, _) in enumerate(packets):
        data += bytes([i + 1 < len(packets), 8, kind, channels])
    for y in range(HEIGHT):
        for _, picked in packets:
            row = [[(13 * x, 19 * y, 5 * x * y % 256, 255 - 9 * x)[c] for c in picked] for x in range(WIDTH)]
            data += run_lengths(row) if packed else b"".join(bytes(sample) for sample in row)
    with open(name, "wb") as file:
        file.write(data)


def main():
    pam("plain.pam", False)
    pam("alpha.pam", True)
    plain, alpha = ["convert", "plain.pam", "-strip"], ["convert", "alpha.pam", "-strip"]
    for extension in ("bmp", "dpx", "exr", "gif", "hdr", "ico", "jp2", "jpg", "pbm", "pgm", "png", "ppm", "psd", "sgi",
                      "tga", "tif", "webp", "cin", "dds"):
        name = f"plain.{extension}"
        if extension in ("exr", "hdr"):   # linear light
            run("oiiotool", "plain.png", "--colorconvert", "sRGB", "linear", "-o", name)
        elif extension == "tga":
            run("oiiotool", "plain.png", "-o", name)
        elif extension == "pbm":
            run(*plain, "-threshold", "50%", name)
        elif extension == "pgm":
            run(*plain, "-colorspace", "Gray", name)
        elif extension == "jpg":
            run(*plain, "-quality", "95", name)
        elif extension == "webp":
            run(*plain, "-define", "webp:lossless=true", name)
        elif extension == "jp2":
            run(*plain, "-quality", "100", name)
        elif extension == "dds":
            run(*plain, "-define", "dds:compression=none", name)
        else:
            run(*plain, "-depth", "8", *(["-endian", "MSB"] if extension == "dpx" else []), name)
        if extension == "dpx":
            run(*plain, "-depth", "8", "plain.png")
    for extension in ("png", "tif", "dpx", "sgi"):
        run(*alpha, "-depth", "8", f"alpha.{extension}")
    run("oiiotool", "alpha.png", "--colorconvert:unpremult=1", "sRGB", "linear", "-d", "float", "-o", "alpha.exr")
    run("oiiotool", "alpha.png", "-o", "alpha.tga")
    run(*plain, "-colorspace", "Gray", "-depth", "8", "grey.png")
    run(*plain, "-colorspace", "Gray", "-depth", "8", "grey.tif")
    run(*alpha, "-colorspace", "Gray", "-depth", "8", "greyalpha.png")
    run(*plain, "-colors", "16", "-type", "Palette", "palette.png")
    run(*plain, "-interlace", "PNG", "-depth", "8", "interlaced.png")
    run(*plain, "-depth", "16", "deep.png")
    run(*plain, "-depth", "16", "deep.tif")
    run(*plain, "-depth", "10", "deep.dpx")
    run(*plain, "-colorspace", "CMYK", "-compress", "zip", "cmyk.tif")
    run(*plain, "-colorspace", "CMYK", "-quality", "95", "cmyk.jpg")
    run("oiiotool", "plain.png", "--compression", "rle", "-o", "runs.tga")
    run(*plain, "-compress", "LZW", "lzw.tif")
    run("oiiotool", "plain.png", "--tile", "16", "16", "-o", "tiled.tif")
    run("oiiotool", "plain.exr", "--tile", "16", "16", "-o", "tiled.exr")
    run("oiiotool", "alpha.png", "-o", "multiplied.tif")
    run("oiiotool", "plain.png", "-o", "plain.iff")
    run("oiiotool", "plain.png", "-o", "plain.rla")
    run(*plain, "-depth", "8", "-compress", "none", "sgi:plain.rgb")
    softimage("plain.pic", False, True)
    softimage("alpha.pic", True, True)
    softimage("raw.pic", False, False)


main()
for name in ("plain.pam", "alpha.pam"):
    os.remove(name)
