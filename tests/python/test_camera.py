"""A camera from Python: Aravis's in-process simulated camera into an ImagePool."""
import time

import numpy as np
import pytest

import grabsystem

pytestmark = pytest.mark.skipif(not grabsystem.camera_support(), reason="built without Aravis")


def take(pool, camera, count):
    """Every frame in serial order, copied, with its frame attribute; released at once."""
    frames, serial, deadline = [], 0, time.monotonic() + 20
    while len(frames) < count and time.monotonic() < deadline:
        image = pool.get(serial) if serial < pool.next_serial else None
        if image is None:
            assert camera.streaming
            time.sleep(0.0005)
            continue
        with image:
            frames.append((image.frame_attr, image.pixels.copy()))
        serial += 1
    return frames


@pytest.mark.parametrize("bits", [8, 16])
def test_every_pixel_of_every_frame_streamed_into_a_pool(bits):
    camera = grabsystem.Camera(simulated="PY1")
    camera.configure(width=48, height=32, x=8, y=4, pixel_format=f"Mono{bits}", frame_rate=1000)
    assert camera.description["region"] == (8, 4, 48, 32) and camera.description["serial"] == "PY1"
    pool = grabsystem.ImagePool(8, 48, 32, bits=bits)
    with camera:
        camera.start(pool)
        frames = take(pool, camera, 150)
    assert len(frames) == 150
    assert all(grabsystem.check_simulated_pattern(pixels, attr) == 0 for attr, pixels in frames)
    attr, pixels = frames[0]
    pixels[3, 5] ^= 1  # the check sees a single pixel
    assert grabsystem.check_simulated_pattern(pixels, attr) == 1
    c = camera.counters
    assert c["sent"] == c["pushed"] + c["refused_no_free_node"] + c["refused_too_large"] + c["overwritten"] \
        + c["incomplete"] + c["missed"]
    assert c["pushed"] == pool.counters["pushed"] >= 150
    assert 65535 in [a for a, _ in frames] and 1 in [a for a, _ in frames]  # ids wrap, skipping 0


def test_counter_attribute_and_errors_name_the_camera():
    camera = grabsystem.Camera(simulated="PY2")
    camera.configure(width=16, height=8, frame_rate=1000)
    pool = grabsystem.ImagePool(4, 16, 8)
    camera.start(pool, frame_attr="counter", first_counter=1000)
    with pytest.raises(grabsystem.CameraError) as e:
        camera.configure(width=8, height=8)
    assert (e.value.camera, e.value.code) == ("simulated camera PY2", "invalid argument")
    attrs = [a for a, _ in take(pool, camera, 20)]
    camera.stop()
    assert attrs == list(range(1000, 1020))
    with pytest.raises(grabsystem.CameraError, match="Mono16 frames need a 16-bit pool"):
        camera.configure(pixel_format="Mono16")
        camera.start(pool)
    with pytest.raises(ValueError, match="RGB8 is not supported"):
        camera.configure(pixel_format="RGB8")
    with pytest.raises(grabsystem.CameraError) as e:
        grabsystem.Camera(address="not-an-address")
    assert str(e.value) == "camera at not-an-address: not an IPv4 address"
    with pytest.raises(ValueError):
        grabsystem.Camera(simulated="A", address="127.0.0.1")
