"""A number that a picture carries, so that whoever sees the picture knows when it was made, or which one it is.

The topmost eighteenth of the picture is 32 cells side by side, white for 1 and black for 0: 24 bits of the number, the
highest first, and 8 bits of check. It outlives scaling to 1280x720 and every codec; the picture has to be 16 to 9.
"""
CELLS = 32
NUMBER_BITS = 24
HEIGHT_DIVISOR = 18
WHITE, BLACK = 235, 16  # of I420
CHECK_SEED = 0xA5


def code_of(number):
    number &= (1 << NUMBER_BITS) - 1
    check = CHECK_SEED ^ number >> 16 ^ number >> 8 & 0xFF ^ number & 0xFF
    return number << 8 | check


def number_of(code):
    """None where the check does not hold: the picture carries no number, or it is damaged."""
    number = code >> 8
    return number if code_of(number) == code else None


def luma(number, width, height, brightness=128):
    """The Y plane of a picture of one brightness that carries the number; the other planes are width * height // 2
    bytes of 128. The width has to be a multiple of 32."""
    code = code_of(number)
    cell = width // CELLS
    line = b"".join(bytes([WHITE if code >> CELLS - 1 - i & 1 else BLACK]) * cell for i in range(CELLS))
    lines = height // HEIGHT_DIVISOR
    return line * lines + bytes([brightness]) * (width * (height - lines))


def i420(number, width, height, brightness=128):
    return luma(number, width, height, brightness) + b"\x80" * (width * height // 2)


def number_in(bgra, width=1280, height=720):
    """From a whole picture of the bridge, or of the decoder: any buffer of bytes. None: it carries no number."""
    row = height // HEIGHT_DIVISOR // 2 * width * 4
    code = 0
    for i in range(CELLS):
        x = (2 * i + 1) * width // CELLS // 2
        code = code << 1 | (bgra[row + x * 4 + 1] > 127)
    return number_of(code)
