#!/usr/bin/python3
"""Compare what the image catalogue says of the images below a folder with identify, exiftool and md5sum.

    compare_images.py CATALOGUE FOLDER JUDGED

Each difference is looked up in the file JUDGED, whose lines are "PATTERN | FIELD | WHO IS RIGHT | WHY"; PATTERN is
a shell pattern for the path below FOLDER. Prints how often each judgement was used (never: another release of the
package) and each difference without one; the exit status is 1 when there is such a difference."""

import fnmatch
import json
import os
import subprocess
import sys

KINDS = {"PNG": "png", "APNG": "png", "TIFF": "tiff", "BTF": "tiff", "BMP": "bmp", "JPEG": "jpeg",
         "JNG": None, "MNG": None}
CENTIMETRES_PER_INCH = 2.54
BATCH = 200


def run(command, **options):
    return subprocess.run(command, capture_output=True, check=False, **options).stdout


def batches(paths):
    for start in range(0, len(paths), BATCH):
        yield paths[start:start + BATCH]


def catalogue(program, folder):
    entries = json.loads(run([program, "--json", folder]))["entries"]
    return {entry["path"]: entry for entry in entries if entry["kind"] is not None}


def exiftool(paths):
    """FileType, ImageWidth and ImageHeight by path."""
    facts = {}
    for batch in batches(paths):
        text = run(["exiftool", "-json", "-fast", "-n", "-FileType", "-ImageWidth", "-ImageHeight", "-XResolution",
                    "-YResolution", "-ResolutionUnit", "-Error", "-Warning", *batch])
        facts.update((entry["SourceFile"], entry) for entry in json.loads(text or "[]"))
    return facts


def identify_one(path, *options):
    """(width, height, dpi_x, dpi_y) of the first image, or None; and the complaints."""
    result = subprocess.run(["identify", *options, "-format", "%w %h %x %y %U", path + "[0]"],
                            capture_output=True, text=True, errors="replace", check=False)
    words = result.stdout.split()
    if len(words) < 5:
        return None, result.stderr
    width, height = int(words[0]), int(words[1])
    factor = CENTIMETRES_PER_INCH if words[4] == "PixelsPerCentimeter" else 1
    dpi = (None, None) if words[4] == "Undefined" else tuple(
        int(float(word) * factor + 0.5) for word in words[2:4])
    return (width, height) + dpi, result.stderr


def md5sums(paths):
    sums = {}
    for batch in batches(paths):
        for record in run(["md5sum", "--zero", "--", *batch]).decode().split("\0"):
            if record:
                sums[record[34:]] = record[:32]
    return sums


def differences(entry, exif, md5):
    """(field, catalogue's value, the other's) for whatever does not agree."""
    path = entry["path"]
    found = []
    if entry["md5"] != md5[path]:
        found.append(("md5", entry["md5"], "md5sum: " + md5[path]))
    if KINDS.get(exif.get("FileType")) != entry["kind"]:
        found.append(("kind", entry["kind"], f"exiftool: {exif.get('FileType')}"))
    size = (entry["width"], entry["height"])
    exif_size = (exif.get("ImageWidth"), exif.get("ImageHeight"))
    if exif_size != size:
        found.append(("size", size, f"exiftool: {exif_size}"))
    seen, complaints = identify_one(path, "-ping")
    if seen is None:
        found.append(("readable", entry["problem"], f"identify: {complaints.strip()[-160:]}"))
    else:
        if seen[:2] != size:
            found.append(("size", size, f"identify: {seen[:2]}"))
        dpi = (entry["dpi_x"], entry["dpi_y"])
        if seen[2:] != dpi:
            other = [exif.get(name) for name in ("XResolution", "YResolution", "ResolutionUnit")]
            found.append(("dpi", dpi, f"identify: {seen[2:]}, exiftool: {other}"))
    if entry["problem"] is not None:
        decoded, complaints = identify_one(path)
        if decoded is not None and not complaints:
            found.append(("problem", entry["problem"], "identify decodes it without a complaint"))
    return found


def read_judgements(path):
    judgements = []
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            if line.strip() and not line.startswith("#"):
                judgements.append([part.strip() for part in line.split("|", 3)])
    return judgements


def main():
    program, folder, judged = sys.argv[1:]
    entries = catalogue(program, folder)
    paths = sorted(entries)
    exif, md5 = exiftool(paths), md5sums(paths)
    judgements = read_judgements(judged)
    uses = [0] * len(judgements)
    open_differences = []
    for path in paths:
        name = os.path.relpath(path, folder)
        for field, mine, other in differences(entries[path], exif.get(path, {}), md5):
            matching = [i for i, (pattern, of, _, _) in enumerate(judgements)
                        if of == field and fnmatch.fnmatchcase(name, pattern)]
            if matching:
                uses[matching[0]] += 1
            else:
                open_differences.append(f"{name} | {field} | catalogue: {mine}, {other}")
    problems = sum(entry["problem"] is not None for entry in entries.values())
    print(f"{len(paths)} images, {problems} of them with a problem")
    for (pattern, field, right, why), count in zip(judgements, uses):
        print(f"  {count:4} x {pattern} | {field} | right: {right} | {why}")
    for text in open_differences:
        print("NOT JUDGED:", text)
    return 1 if open_differences or not paths else 0


if __name__ == "__main__":
    sys.exit(main())
