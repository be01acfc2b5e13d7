"""The frame mark of test pictures (appliance/mark/frame_mark.h), read from a screenshot."""
import io

from PIL import Image

BITS = 32  # source 8, counter 16, check 8; the highest bit is at the left
STRIP_TOP, ROW_HEIGHT = 0.90, 0.05
LEAST_CONTRAST = 50


def picture(png):
    return Image.open(io.BytesIO(png)).convert("RGB")


def mean(image, left, top, right, bottom):
    """The brightness in the middle half of a cell: scaling blurs its edges."""
    width, height = image.size
    inset_x, inset_y = (right - left) / 4, (bottom - top) / 4
    box = (round((left + inset_x) * width), round((top + inset_y) * height),
           round((right - inset_x) * width), round((bottom - inset_y) * height))
    box = (*box[:2], max(box[2], box[0] + 1), max(box[3], box[1] + 1))
    pixels = image.crop(box).convert("L").getdata()
    return sum(pixels) / len(pixels)


def check_of(data):
    crc = 0xA5
    for shift in (16, 8, 0):
        crc ^= data >> shift & 0xFF
        for _ in range(8):
            crc = (crc << 1 ^ (0x07 if crc & 0x80 else 0)) & 0xFF
    return crc


def read_mark(image):
    """(source, counter), or None without a valid mark."""
    word = 0
    for bit in range(BITS):
        left, right = bit / BITS, (bit + 1) / BITS
        upper = mean(image, left, STRIP_TOP, right, STRIP_TOP + ROW_HEIGHT)
        lower = mean(image, left, STRIP_TOP + ROW_HEIGHT, right, 1)
        if abs(upper - lower) < LEAST_CONTRAST:
            return None
        word = word << 1 | (upper > lower)
    data = word >> 8
    return (data >> 16, data & 0xFFFF) if check_of(data) == word & 0xFF else None


def bright_pixels(image, top, bottom):
    """How many pixels between these shares of the height are nearly white, as the letters on the screen are."""
    width, height = image.size
    part = image.crop((0, round(top * height), width, round(bottom * height)))
    return sum(1 for red, green, blue in part.getdata() if min(red, green, blue) > 200)
