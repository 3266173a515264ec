"""Makes a ZIP archive of a folder, which is its top folder: the same bytes for the same files. Entries
are sorted, their time is SOURCE_DATE_EPOCH, and files may be read by all, and run when their owner may.
"""

import os
import sys
import time
import zipfile
from pathlib import Path


def main():
    folder, archive = Path(sys.argv[1]), Path(sys.argv[2])
    date = time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"]))[:6]
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as made:
        for path in sorted(path for path in folder.rglob("*") if path.is_file()):
            entry = zipfile.ZipInfo(str(path.relative_to(folder.parent)), date)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o100755 if os.access(path, os.X_OK) else 0o100644) << 16
            made.writestr(entry, path.read_bytes())


main()
