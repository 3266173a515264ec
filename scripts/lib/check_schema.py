"""Checks that the scripts of docs/ are valid by docs/patch.xsd, and that faulty ones aren't."""

import argparse
import subprocess
import tempfile
from pathlib import Path

import results

SOUND = """<patch version="1.0">
  <header><property name="id" value="check"/></header>
  <script>
    <!-- handlers in any order -->
    <regWrite id="first" root="HKEY_LOCAL_MACHINE" key="k" value="v" type="REG_SZ">
      <onsuccess/><onerrorspec err="2"><exit/></onerrorspec><data>text</data><onerror/>
      <onerrorspec err="5"/>
    </regWrite>
    <sleep milisec="-1"/>
    <for var="v" value="a;b" delim=";"><trace value="%v%" std="out"/></for>
    <fileExists path="p"><onFalse/><onTrue><goto target="first"/></onTrue></fileExists>
    <dirDeleteRec path="p" ignoreErrors="true"/>
    <nothing/>
  </script>
</patch>
"""

# A text of SOUND, what replaces it, and the element that the complaint has to name.
FAULTS = [
    ("<nothing/>", "<noThing/>", "noThing"),
    ("<nothing/>", "<nothing code='1'/>", "nothing"),
    ("<nothing/>", "<nothing id='first'/>", "nothing"),
    ("<nothing/>", "<nothing id=''/>", "nothing"),
    ("<nothing/>", "text", "script"),
    (' milisec="-1"', "", "sleep"),
    ("-1", "%x%", "sleep"),
    ("-1", "4294967296", "sleep"),
    ("REG_SZ", "REG_TEXT", "regWrite"),
    ('"true"', '"yes"', "dirDeleteRec"),
    ('std="out"', 'std="Out"', "trace"),
    ('delim=";"', 'delim=""', "for"),
    (' err="5"', "", "onerrorspec"),
    ("<onFalse/>", "<onerror/>", "onerror"),
    ("<onFalse/>", "<onTrue/>", "onTrue"),
    ("<onsuccess/>", "<onsuccess/><onerror/>", "onerror"),
    ('version="1.0"', 'version="2.0"', "patch"),
    ("<header>", "<header/><header>", "header"),
]


def complaints(schema, files):
    """The errors that xmllint reports for each file."""
    run = subprocess.run(["xmllint", "--noout", "--schema", schema, *files], capture_output=True,
                         text=True, check=False, timeout=120)
    found = {path: "" for path in files}
    for line in run.stderr.splitlines():
        for path in files:
            if line.startswith(f"{path}:"):
                found[path] += line + "\n"
    valid = [path for path in files if f"{path} validates" in run.stderr.splitlines()]
    for path in files:
        if path not in valid and not found[path]:
            found[path] = run.stderr  # the file or the schema couldn't be read
    return found


def check_faults(schema, folder):
    files = [(folder / "sound.xml", None)]
    files[0][0].write_text(SOUND, encoding="utf-8")
    for number, (old, new, element) in enumerate(FAULTS):
        script = SOUND.replace(old, new, 1)
        files.append((folder / f"{number}.xml", element))
        files[-1][0].write_text(script, encoding="utf-8")
    found = complaints(schema, [path for path, _ in files])
    failures = []
    if found[files[0][0]]:
        failures.append(f"schema: it refuses a sound script\n{found[files[0][0]]}")
    for (old, new, element), (path, _) in zip(FAULTS, files[1:]):
        if f"element {element}: Schemas validity error" not in found[path]:
            failures.append(f"schema: {new!r} for {old!r} isn't refused at {element!r}\n"
                            f"{found[path]}")
    return failures


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--json", type=Path, required=True)
    arguments = parser.parse_args()

    schema = arguments.root / "docs/patch.xsd"
    scripts = sorted((arguments.root / "docs").glob("*/*.xml"))
    failures = [f"schema: {path.relative_to(arguments.root)}\n{text}"
                for path, text in complaints(schema, scripts).items() if text]
    with tempfile.TemporaryDirectory() as folder:
        failures += check_faults(schema, Path(folder))

    checks = len(scripts) + 1 + len(FAULTS)
    results.write(arguments.json, checks, failures)
    print(f"{checks - len(failures)} passed, {len(failures)} failed, 0 skipped")


main()
