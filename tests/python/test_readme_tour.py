"""The README's Python tour runs as written from the source tree: no error, no file left."""
import os
import re
import subprocess
import sys

from conftest import SOURCE_DIR


def test_the_python_tour_runs_cleanly():
    readme = (SOURCE_DIR / "README.md").read_text(encoding="utf-8")
    script = re.search(r"python3 - <<'PY'\n(.*?)\nPY\n", readme, re.DOTALL).group(1)
    before = sorted(os.listdir(SOURCE_DIR))
    result = subprocess.run([sys.executable, "-"], input=script, cwd=SOURCE_DIR, text=True,
                            capture_output=True, timeout=120)
    assert result.returncode == 0 and result.stderr == "", result.stderr
    assert result.stdout.splitlines()[-1] == "valid"
    assert sorted(os.listdir(SOURCE_DIR)) == before
