# SPDX-License-Identifier: Apache-2.0
"""The README's example does what it says. Run under ybnet-testkit-run."""

import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

README = Path(__file__).parents[1] / "README.md"


@unittest.skipUnless(os.environ.get("YBNET_TESTKIT_DIR"), "needs ybnet-testkit-run")
class ReadmeTest(unittest.TestCase):
    def test_example_prints_what_the_readme_says(self) -> None:
        blocks = re.findall(r"```(\w+)\n(.*?)```", README.read_text(), re.DOTALL)
        example = next(text for language, text in blocks if language == "python")
        output = next(text for language, text in blocks if language == "text")
        subprocess.run(["ip", "link", "add", "name", "swid0_eth", "type", "dummy"], check=True)
        self.addCleanup(subprocess.run, ["ip", "link", "del", "dev", "swid0_eth"], check=True)
        done = subprocess.run([sys.executable, "-c", example], capture_output=True, text=True, timeout=60)
        self.assertEqual(("", output), (done.stderr, done.stdout))


if __name__ == "__main__":
    unittest.main()
