"""The README's tour runs as written from the source tree, its shell lines and every Python block:
no error, and nothing left behind, neither in the tree nor in the temporary folder."""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

import pytest

from conftest import SOURCE_DIR

README = (SOURCE_DIR / "README.md").read_text(encoding="utf-8")
PYTHON_BLOCKS = re.findall(r"python3 - <<'PY'\n(.*?)\nPY\n", README, re.DOTALL)
# The build tree the tests run against stands for the README's build/.
BUILD_DIR = pathlib.Path(os.environ["PYTHONPATH"].split(os.pathsep)[0]).parent


def run_leaving_nothing(command, **kwargs):
    with tempfile.TemporaryDirectory() as scratch:
        before = sorted(os.listdir(SOURCE_DIR))
        env = dict(os.environ, TMPDIR=scratch)
        result = subprocess.run(command, cwd=SOURCE_DIR, env=env, text=True, capture_output=True,
                                timeout=120, **kwargs)
        assert result.returncode == 0 and result.stderr == "", result.stderr
        assert os.listdir(scratch) == [], "left in the temporary folder"
        assert sorted(os.listdir(SOURCE_DIR)) == before, "left in the source tree"
        return result.stdout


@pytest.mark.parametrize("block", range(len(PYTHON_BLOCKS)))
def test_each_python_block_runs_cleanly(block):
    assert len(PYTHON_BLOCKS) >= 2
    output = run_leaving_nothing([sys.executable, "-"], input=PYTHON_BLOCKS[block])
    assert output.strip(), "a block prints what it shows"


def test_the_shell_tour_runs_as_written():
    tour = re.search(r"## A short tour\n.*?```sh\n(.*?)```", README, re.DOTALL).group(1)
    assert "/tmp" not in tour and tour.rstrip().endswith('rm -r "$out"')
    script = "set -e\n" + tour.replace("build/", f"{BUILD_DIR}/")
    output = run_leaving_nothing(["bash", "-c", script])
    assert "samples/invoice.xml: ok" in output and "interface IInvoice" in output
