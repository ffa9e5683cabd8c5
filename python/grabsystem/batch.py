"""Batch jobs over capture archives with Dask, from the command line.

    python3 -m grabsystem.batch extract DIR... -o OUT [--scheduler ADDR]
    python3 -m grabsystem.batch export PACKAGE... -o ROOT [--scheduler ADDR]
    python3 -m grabsystem.batch preview FILE... -o OUT [--scheduler ADDR]

One task per file, on this machine's cores or on the Dask cluster whose
scheduler is at ADDR. Prints a line per file (written, or failed with the
cause) and exits with 1 when any file failed.
"""
import argparse
import sys

COMMANDS = {
    "extract": "extract .armraw views into the BMP tree under OUT (as ArmExtractor / grabsys arm extract)",
    "export": "export debug packages with OUT as the drive root: OUT/D/ImgTest/CamImgInput (as grabsys package export)",
    "preview": "contact sheets of views, packages and images into the folder OUT (as grabsys preview)",
}


def parser():
    p = argparse.ArgumentParser(
        prog="python3 -m grabsystem.batch", description=__doc__.split("\n\n")[0],
        epilog="Every worker must see the paths (a shared file system) and have grabsystem installed.")
    commands = p.add_subparsers(dest="command", required=True, metavar="COMMAND")
    for name, what in COMMANDS.items():
        c = commands.add_parser(name, help=what, description=what[0].upper() + what[1:] + ".")
        c.add_argument("paths", nargs="+", metavar="PATH", help="files, folders or glob patterns")
        c.add_argument("-o", "--out", required=True, help="output folder (the drive root for export)")
        c.add_argument("--scheduler", metavar="ADDR", help="a Dask scheduler, e.g. tcp://10.0.0.5:8786 (default: "
                       "processes on this machine)")
        c.add_argument("--workers", type=int, help="processes on this machine (default: one per core)")
        c.add_argument("-q", "--quiet", action="store_true", help="no progress bar, and only the failed files")
        if name != "preview":
            c.add_argument("--no-check", action="store_true",
                           help="trust what the lenient library reads, without the strict readers' second look")
        if name == "extract":
            c.add_argument("--mode", type=int, choices=(1, 2, 3), default=1,
                           help="1 all frames, 2 white frames only, 3 Sin frames only (default 1)")
        if name == "preview":
            c.add_argument("-t", "--thumb", type=int, default=96, help="thumbnail width (default 96)")
            c.add_argument("-n", "--per-row", type=int, default=13, help="thumbnails per line (default 13)")
            c.add_argument("--image-width", type=int, default=480, help="width of a single image (default 480)")
            c.add_argument("--no-labels", action="store_true", help="the same layout without text")
    return p


def main(argv=None):
    args = parser().parse_args(argv)
    try:
        from grabsystem import dask as jobs
    except ImportError as error:
        print(f"grabsystem.batch: {error}", file=sys.stderr)
        return 1
    common = {"client": args.scheduler, "progress": not args.quiet, "workers": args.workers}
    try:
        if args.command == "extract":
            outcomes = jobs.extract(args.paths, args.out, mode=args.mode, check=not args.no_check, **common)
        elif args.command == "export":
            outcomes = jobs.export(args.paths, args.out, check=not args.no_check, **common)
        else:
            outcomes = jobs.preview(args.paths, args.out, thumb_width=args.thumb, per_row=args.per_row,
                                    image_width=args.image_width, labels=not args.no_labels, **common)
    except (ValueError, OSError) as error:  # no input, or no scheduler at that address
        print(f"grabsystem.batch: {error}", file=sys.stderr)
        return 1
    failed = [o for o in outcomes if not o.ok]
    for outcome in outcomes:
        if not outcome.ok:
            print(outcome, file=sys.stderr)
        elif not args.quiet:
            print(outcome)
    files = sum(len(o.files) for o in outcomes)
    print(f"{args.command}: {len(outcomes) - len(failed)} of {len(outcomes)} inputs done, {files} files written into "
          f"{args.out}" + (f"; {len(failed)} failed" if failed else ""), file=sys.stderr if failed else sys.stdout)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
