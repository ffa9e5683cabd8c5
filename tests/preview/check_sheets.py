"""grabsys preview as a user runs it, its PNGs read with Pillow.

The sheet of a view must show the frames of the tree `grabsys arm extract`
writes, row by row (Cam<c>P, Cam<c>Q), in image-number order then imgW, in
the geometry contact_sheet.h gives; thumbnail means match the frames'.
Usage: check_sheets.py <grabsys>
"""
import atexit
import math
import os
import shutil
import subprocess
import sys
import tempfile

from PIL import Image, ImageStat

G = sys.argv[1]
MARGIN, GAP, LINE, STRIP, MIN_WIDTH = 4, 4, 10, 26, 256


def run(*args, ok=True):
    p = subprocess.run([G, *args], capture_output=True, text=True)
    assert (p.returncode == 0) == ok, f"grabsys {' '.join(args)}: {p.returncode} {p.stderr}"
    return p


def mean(img):
    return ImageStat.Stat(img.convert("L")).mean[0]


def check(png, rows, cell, per_row, th):
    """rows: (label lines, [frame images]); checks size and every thumbnail."""
    sheet = Image.open(png)
    assert sheet.mode == "RGB", sheet.mode
    cols = max(1, min(per_row, max(len(f) for _, f in rows)))
    pitch = th + STRIP + GAP
    height = 2 * MARGIN + sum(lines * LINE + math.ceil(len(f) / per_row) * pitch for lines, f in rows)
    assert sheet.size == (max(MIN_WIDTH, 2 * MARGIN + cols * cell + (cols - 1) * GAP), height), (png, sheet.size)
    y = MARGIN
    for lines, frames in rows:
        y += lines * LINE
        for j, frame in enumerate(frames):
            tw = min(cell, frame.width)
            x, top = MARGIN + (j % per_row) * (cell + GAP), y + (j // per_row) * pitch
            thumb = sheet.crop((x, top, x + tw, top + th)).convert("L")
            assert abs(mean(thumb) - mean(frame)) <= 0.5, (png, j, mean(thumb), mean(frame))
            # Pillow's box filter, exact at this whole ratio: the same picture.
            box = frame.convert("L").resize((tw, th), Image.BOX)
            assert max(abs(a - b) for a, b in zip(thumb.tobytes(), box.tobytes())) <= 1, (png, j)
        y += math.ceil(len(frames) / per_row) * pitch
    return sheet


T = tempfile.mkdtemp()
atexit.register(shutil.rmtree, T, True)
run("demo", "--frames", "4", "--camera-fps", "0", "--consumer-ms", "0", "--width", "64", "--height", "48",
    "--views", "2", "--cameras", "2", "--arm-width", "96", "--arm-height", "64", "--package-frames", "3",
    "-o", f"{T}/demo", "-q")
run("arm", "extract", f"{T}/demo/armraw", "-o", f"{T}/bmp")

# A view: thumbnails 48 wide are half the frames, 32 tall; 5 to a line.
rows = []
for cam in (0, 1):
    for group in "PQ":
        d = f"{T}/bmp/Cam{cam}{group}/1"
        names = sorted(os.listdir(d), key=lambda n: (n == "imgW.bmp", int(n[3:-4]) if n != "imgW.bmp" else 0))
        rows.append((1, [Image.open(f"{d}/{n}") for n in names]))
assert [len(f) for _, f in rows] == [13, 12, 13, 12]
opts = ["--thumb", "48", "--per-row", "5"]
run("preview", f"{T}/demo/armraw/1.armraw", "-o", f"{T}/v1.png", *opts)
labelled = check(f"{T}/v1.png", rows, 48, 5, 32)
run("preview", f"{T}/demo/armraw/1.armraw", "-o", f"{T}/plain.png", "--no-labels", *opts)
plain = check(f"{T}/plain.png", rows, 48, 5, 32)
label_row = (0, MARGIN, labelled.width, MARGIN + LINE)
assert labelled.crop(label_row).tobytes() != plain.crop(label_row).tobytes(), "labels drew nothing"

# A package of those frames, whose run must show them in order after the title line.
frames = rows[1][1]
os.makedirs(f"{T}/frames")
for k, f in enumerate(frames):
    f.save(f"{T}/frames/img{k}.bmp")
run("package", "create", "--from", f"{T}/frames", "-o", f"{T}/cam.dbg", "--camera", "4", "--jump", "2")
run("preview", f"{T}/cam.dbg", "-o", f"{T}/pkg.png", *opts)
check(f"{T}/pkg.png", [(1, []), (1, frames)], 48, 5, 32)

# An image at its own size, under its three lines of information block.
run("preview", f"{T}/demo/frame0.bmp", "-o", f"{T}/img.png")
sheet = check(f"{T}/img.png", [(3, [Image.open(f"{T}/demo/frame0.bmp")])], 480, 13, 48)
assert sheet.crop((MARGIN, MARGIN + 3 * LINE, MARGIN + 64, MARGIN + 3 * LINE + 48)).convert("L").tobytes() == \
    Image.open(f"{T}/demo/frame0.bmp").convert("L").tobytes()

# Bad inputs: one line each on stderr, the good input still gets its sheet.
with open(f"{T}/junk.dat", "wb") as f:
    f.write(b"not an image" * 10)
with open(f"{T}/demo/armraw/1.armraw", "rb") as f:
    cut = f.read()[:3000]
with open(f"{T}/5.armraw", "wb") as f:
    f.write(cut)
p = run("preview", f"{T}/junk.dat", f"{T}/demo/frame1.bmp", f"{T}/5.armraw", "-o", f"{T}/out/", ok=False)
errors = p.stderr.strip().splitlines()
assert len(errors) == 2 and "junk.dat: not a file of this system" in errors[0] and "5.armraw: arm view" in errors[1], errors
assert os.listdir(f"{T}/out") == ["frame1.png"], os.listdir(f"{T}/out")

# A folder: one sheet per view, named after -o, or one index sheet.
run("preview", f"{T}/demo/armraw", "-o", f"{T}/s.png")
assert os.path.exists(f"{T}/s-armraw-0.png") and os.path.exists(f"{T}/s-armraw-1.png")
run("preview", f"{T}/demo/armraw", "--index", "-o", f"{T}/index.png", *opts)
picks = ((0, "P", "0"), (0, "P", "W"), (0, "Q", "0"), (1, "P", "0"), (1, "P", "W"), (1, "Q", "0"))
check(f"{T}/index.png", [(1, [Image.open(f"{T}/bmp/Cam{c}{g}/{v}/img{n}.bmp") for c, g, n in picks]) for v in (0, 1)],
      48, 5, 32)
print("preview sheets: geometry, thumbnail means, labels, package, image, errors and folder index checked")
