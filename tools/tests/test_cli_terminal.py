"""oru-sensor at the terminal: --version, the bash completion and the man
page built from the program's help. Run by ctest with ORU_SENSOR_EXE,
ORU_COMPLETION and ORU_MAN pointing at the build's files."""

import gzip
import os
import subprocess
import unittest

EXE = os.environ.get("ORU_SENSOR_EXE", "oru-sensor")
COMPLETION = os.environ.get("ORU_COMPLETION", "")
MAN = os.environ.get("ORU_MAN", "")
BASH_COMPLETION = "/usr/share/bash-completion/bash_completion"


def complete(line):
    """What bash offers for the last word of `line`."""
    script = ('source %s; source %s; COMP_LINE="%s"; COMP_WORDS=(%s); COMP_CWORD=%d; COMP_POINT=${#COMP_LINE}; '
              '_oru_sensor; printf "%%s\\n" "${COMPREPLY[@]}"'
              % (BASH_COMPLETION, COMPLETION, line, " ".join('"%s"' % w for w in line.split(" ")),
                 len(line.split(" ")) - 1))
    r = subprocess.run(["bash", "-c", script], capture_output=True, text=True, timeout=30)
    return sorted(w for w in r.stdout.split("\n") if w)


class Terminal(unittest.TestCase):
    def test_version_names_program_and_library(self):
        r = subprocess.run([EXE, "--version"], capture_output=True, text=True, timeout=30)
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertRegex(r.stdout, r"^oru-sensor \d+\.\d+\.\d+ \(liboru_device \d+\.\d+\.\d+\)\n$")

    @unittest.skipUnless(os.path.exists(BASH_COMPLETION) and COMPLETION, "needs bash-completion")
    def test_completion_offers_commands_options_and_values(self):
        cases = {
            "oru-sensor ": ["--config", "--help", "--sensor", "--verbose", "--version", "--virtual", "-v", "config",
                            "convert", "dark", "doctor", "info", "list", "log", "read", "reference", "set"],
            "oru-sensor config ": ["--config", "--help", "--sensor", "--verbose", "--version", "--virtual", "-v",
                                   "show"],
            "oru-sensor l": ["list", "log"],
            "oru-sensor log --r": ["--rotate"],
            "oru-sensor log --format ": ["csv", "hdf5", "jsonl"],
            "oru-sensor read --format ": ["csv", "csv-columns", "json", "jsonl", "table"],
            "oru-sensor dark --format ": ["csv", "jsonl"],
            "oru-sensor read --mode t": ["transmittance"],
            "oru-sensor read --algorithm TNNLS-": ["TNNLS-GCV", "TNNLS-LCurve"],
            "oru-sensor reference --a": ["--auto-exposure", "--averages"],
            "oru-sensor --virtual=2 log --publish-values ": ["all", "none", "summary"],
            "oru-sensor set --": ["--config", "--gain", "--help", "--range", "--save", "--sensor", "--shutter",
                                  "--verbose", "--version", "--virtual"],
            "oru-sensor log --keep ": [],
        }
        for line, expected in cases.items():
            with self.subTest(line=line):
                self.assertEqual(complete(line), expected)

    @unittest.skipUnless(MAN, "needs help2man")
    def test_man_page_has_every_command_and_the_examples(self):
        with gzip.open(MAN, "rt") as f:
            page = f.read()
        self.assertIn(".SH EXAMPLES", page)
        for command in ("list", "info", "read", "dark", "reference", "set", "convert", "doctor", "log", "config"):
            self.assertRegex(page, r"(?m)^\\?\s*%s\b" % command)
        self.assertIn("oru\\-sensor log \\-\\-dir /data/oru", page)
        self.assertIn("oru\\-sensor config show", page)
        self.assertIn("oru\\-sensor read \\-\\-spectrum cal.h5", page)


if __name__ == "__main__":
    unittest.main()
