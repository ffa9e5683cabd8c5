"""Shared fixtures: a capture written by the C++ tool, and the files it holds."""
import os
import struct
import subprocess

import pytest

import grabsystem

KEY = b"Tk4mW9pLr2Xv7NqZ"


@pytest.fixture(scope="session")
def demo(tmp_path_factory):
    """`grabsys demo` output: arm views, both packages, raw frames, BMP trees, all written by C++."""
    out = tmp_path_factory.mktemp("demo")
    subprocess.run([os.environ["GRABSYS_TOOL"], "demo", "-q", "--views", "2", "--cameras", "2", "--arm-width", "96",
                    "--arm-height", "64", "--width", "96", "--height", "64", "--frames", "12", "--camera-fps", "0",
                    "--consumer-ms", "0", "--package-frames", "3", "-o", str(out)], check=True, capture_output=True)
    return out


@pytest.fixture
def drive(tmp_path):
    """D: mapped into the test's folder for the exports; the default again afterwards."""
    grabsystem.set_drive_root(str(tmp_path / "drive"))
    yield tmp_path / "drive" / "D"
    grabsystem.set_drive_root("")


def decrypt(data):
    """AES-128-CTR with a zero counter block under the package key, by openssl."""
    return subprocess.run(["openssl", "enc", "-d", "-aes-128-ctr", "-K", KEY.hex(), "-iv", "00" * 16],
                          input=data, check=True, capture_output=True).stdout


def words(data, offset, count):
    return struct.unpack_from(f"<{count}I", data, offset)
