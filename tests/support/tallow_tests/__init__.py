"""What the Python tests share. ctest puts this package on the path and names the folders."""

import os
import pathlib

SOURCE = pathlib.Path(os.environ["TALLOW_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["TALLOW_BINARY_DIR"])
BIN = BUILD / "bin"
LIMIT = 180  # seconds before anything counts as hanging
