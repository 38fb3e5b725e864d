#!/usr/bin/env python3
"""Manual pages and completions against the programs and their sources.

What one of them knows, the others know, and the examples run as printed. The programs are those
that PATH names first.
"""
import functools
import os
import pathlib
import re
import shutil
import string
import subprocess
import tempfile
import unittest

SOURCES = pathlib.Path(__file__).resolve().parent.parent
BLOCK = r"^\.Bd -literal\n(.*?)^\.Ed$"
LITERAL = r'"((?:[^"\\]|\\.)*)"'
os.environ["LC_ALL"] = "C"


def source(*patterns):
    """The files' text, with literals of several lines joined."""
    text = "".join(path.read_text() for pattern in patterns for path in SOURCES.glob(pattern))
    return re.sub(r'"\s*\n\s*"', "", text)


def page(name):
    return (SOURCES / "man" / name).read_text()


def find(pattern, text):
    return re.findall(pattern, text, re.M | re.S)


def listed(name, macro):
    """The arguments of a macro in the list items of a page."""
    words = set()
    for item in find(r"^\.It ([^\n]*)", page(name)):
        for part in re.findall(rf"\b{macro} (.*?)(?= [A-Z][a-z]\b|$)", item):
            words.update(part.replace(" ,", "").split())
    return words


def run(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, stdin=subprocess.DEVNULL,
                          timeout=60, check=False, **options)


@functools.cache
def own_namespace():
    """A command in front of a shell script: a host of its own, with its own locks."""
    script = ("sh", "-c", 'mount -t tmpfs none /run/lock && exec sh -c "$1"', "sh")
    for command in (("unshare", "--ipc", "--mount"),
                    ("unshare", "--user", "--map-root-user", "--ipc", "--mount")):
        tried = run(*command, *script, "true")
        if tried.returncode == 0:
            return command + script
    raise unittest.SkipTest(f"skipped: no namespaces of its own: {tried.stderr.strip()}")


def offered(line):
    """What completion offers at the end of the line, without the blanks and signs that follow."""
    program = line.split()[0]
    script = f"""
        . {SOURCES}/completions/{program}
        COMP_LINE=$1 COMP_POINT=${{#1}} words=($1 '')
        [[ $1 == *' ' ]] || unset 'words[-1]'
        _{program} x "${{1##*[[:blank:]:=]}}" "${{words[-2]}}"
        [[ ${{#COMPREPLY[@]}} == 0 ]] || printf '%s\\n' "${{COMPREPLY[@]}}" """
    done = run("bash", "-c", script, "bash", line)
    assert done.stderr == "", done.stderr
    return {re.sub("[ =-]$", "", reply) for reply in done.stdout.splitlines()}


def table(name):
    """The rows of a table of the variables, each a tuple of its literals and numbers."""
    body = find(rf"^constexpr [^\n]* {name}\[\] = {{\n(.*?)^}};", source("common/vartable.cc"))[0]
    rows = re.findall(r"^\s+{?(\".*?)}?,$", body, re.M)
    return [tuple(cell.strip('"') for cell in re.split(r",\s+", row)) for row in rows]


class Documents(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def shell(self, commands):
        """What each command prints; all run in one folder and IPC namespace."""
        script = "".join(f"{command}\nprintf '\\036'\n" for command in commands)
        outputs = run(*own_namespace(), script, cwd=self.folder).stdout.split("\036")
        self.assertEqual(len(outputs), len(commands) + 1)
        return outputs[:-1]

    def test_options(self):
        for program in ("mox_res_mgr", "devinit"):
            letters = {letter for letter in string.ascii_letters + string.digits
                       if "invalid option" not in run(program, "-" + letter).stderr}
            self.assertGreaterEqual(len(letters), 4)
            self.assertEqual(listed(program + ".8", "Fl"), letters)
            self.assertEqual(offered(program + " -"), {"-" + letter for letter in letters})

    def test_options_of_mox_node(self):
        """Usage, page and completion know the same options of the same verbs."""
        usage = run("mox_node", "-h").stdout
        options = set(re.findall(r"(?<=[\s,])--?[a-zA-Z][a-z-]*", usage.split("\n\n")[3]))
        self.assertGreaterEqual(len(options), 17)
        self.assertEqual({"-" + name for name in listed("mox_node.8", "Fl")}, options)
        offers = {verb: offered(f"mox_node {verb} -") for verb in ("status", "plan", "up", "down")}
        for option in options:
            self.assertEqual("unknown option" in run("mox_node", "status", option).stderr, False)
            for verb, offer in offers.items():
                error = run("mox_node", verb, option, "1").stderr
                self.assertEqual(option in offer, "is no option of" not in error, (verb, option))
        self.assertEqual(set.union(*offers.values()), options)

    def test_keywords(self):
        rows = source("kern/mox_res_mgr/lexer.h") + source("kern/mox_res_mgr/buffer_rows.h")
        words = re.findall(r'(?:TOKEN|ROW)\(T_\w+, "(\w+)"', rows)
        self.assertGreaterEqual(len(words), 18)
        known = {"create", "check", "delete", "search", "node", "device"}

        def accepted(beginning, value):
            outputs = self.shell([f"mox_res_mgr {beginning}{word}={value}" for word in words])
            return {word for word, output in zip(words, outputs) if "Usage: " not in output}

        for command in ("create", "check", "delete"):
            at_node = accepted(f"{command} node-0: ", 0)
            at_device = accepted(f"{command} node-0: device-0.", 1)
            known |= at_node | at_device
            self.assertEqual(offered(f"mox_res_mgr {command} node-0: "),
                             at_node | ({"device"} if at_device else set()))
            self.assertEqual(offered(f"mox_res_mgr {command} node-0: device-0."),
                             {"device-0." + word for word in at_device})
        self.assertEqual(listed("mox_res_mgr.8", "Cm"), known)
        usage = run("mox_res_mgr", "-h").stdout
        for word in known:
            self.assertRegex(usage, r"--search\b" if word == "search" else rf"\b{word.upper()}\b")

    def test_completion_follows_the_command(self):
        for line, answers in (
                ("mox_res_mgr check --search ", {"node"}), ("mox_node up -o ", {"text", "json"}),
                ("mox_res_mgr check node-1: ipcbase=5,d", {"5,databuf", "5,device"}),
                ("devinit -b 5 -f /etc/passw", {"/etc/passwd"}), ("mox_node up -u roo", {"root"})):
            self.assertEqual(offered(line) - {"/etc/passwd-"}, answers, line)

    def expect_explained(self, name, texts, match):
        """Every text is an item of the page; values stand at a % and behind an open end."""
        self.assertGreaterEqual(len(texts), 3)
        items = [item.replace('""', '"').removesuffix(r"\&")
                 for item in re.findall(r'^\.It Sy "(.*)"$', page(name), re.M)]

        def explained(text):
            plain = re.escape(text.replace(r"\n", "").replace(r"\"", '"'))
            pattern = re.sub("%[a-z0-9]+|(?<=[ :=\"])$", ".+", plain)
            return any(match(pattern, item) for item in items)

        self.assertEqual([text for text in texts if not explained(text)], [])

    def test_diagnostics(self):
        def texts(code, call):
            return find(f"(?:{call}){LITERAL}", code)

        def error_texts(code):
            rows = find(r"ROW\(([1-9]\d*),\s*(MOX_\w+),\s*" + LITERAL, source("errutils/moxnumbers.h"))
            used = set(re.findall(r"\bMOX_[A-Z_]+\b", code))
            return [f"{number} {text}" for number, name, text in rows if name in used]

        manager = source("kern/mox_res_mgr/*.cc", "common/sharedmem.cc", "utl/semops.cc")
        reader = source("common/scanconf.cc", "common/variable*.cc", "common/logconfig.cc")
        writer = source("kern/devinit/*.cc", "kern/device/*.cc")
        reports = "(?:Error: |abnormal|checking|create|removing)"
        for name, found in (
                ("mox_res_mgr.8", texts(manager, rf'\bsay\((?="{reports})')),
                ("mox_res_mgr.8", ["Error: " + text for text in texts(manager, r"\berror\(")]),
                ("mox_res_mgr.8", texts(manager, r'logLine\(LEVEL_(?:WRN|ERR),\s*(?:std::string\()?')),
                ("mox_res_mgr.8", error_texts(manager)),
                ("devinit.8", texts(writer, r"devinit_(?:fail|report)\(")),
                ("mox.conf.5", texts(reader, r"logLine\(\w+,\s*|fprintf\(stderr,\s*")),
                ("mox.conf.5", error_texts(reader))):
            self.expect_explained(name, found, re.fullmatch)
        # An item of mox_node shows what stands in front of a text, too.
        found = texts(source("kern/mox_node/*.cc"), r"\bFailure\((?:std::string\()?|stderr,\s*")
        self.expect_explained("mox_node.8", [text.removeprefix("Error: ") for text in found],
                              re.search)

    def test_examples_run_as_printed(self):
        for name in ("mox_res_mgr.8", "devinit.8", "mox_node.8"):
            section = find(r"^\.Sh EXAMPLES$(.*?)^\.Sh ", page(name))[0]
            text = "".join(find(BLOCK, section)).replace(r"\e", "\\")
            # A command stands behind "$ ", its next lines behind "> ", and then what it prints.
            examples = find(r"^\$ ([^\n]*\n(?:> [^\n]*\n)*)(.*?)(?=^\$ |\Z)", text)
            self.assertGreaterEqual(len(examples), 4)
            commands = [command.replace("\n> ", "\n").rstrip("\n") for command, _ in examples]
            printed = [output for _, output in examples]
            self.assertEqual(list(zip(commands, self.shell(commands))),
                             list(zip(commands, printed)))

    def test_variables(self):
        integers, strings, obsolete = map(table, ("integers", "strings", "obsolete"))
        text = page("mox.conf.5")
        # Of two definitions of one name, the later one holds.
        self.assertEqual(re.findall(r"^\.It Va (\w+) Ta (\d+) Ta (\d+) Ta (\d+)$", text, re.M),
                         sorted({row[0]: row for row in integers}.values()))
        # The page says in words what it cannot show.
        described = [(name, initial.replace("(empty)", ""),
                      allowed.replace("(empty)", "").replace(", ", "|").replace("any text", "any"))
                     for name, initial, allowed in re.findall(
                         r"^\.It Va (\w+) Ta (\S+) Ta (\D.*)$", text, re.M)]
        self.assertEqual(described, sorted(strings))
        section = find(r"^\.Ss Obsolete variables$(.*?)^\.Sh ", text)[0]
        self.assertCountEqual(re.findall(r"^\.Va (\w+) [,.]$", section, re.M),
                              [name for name, in obsolete])

    def test_standard_options_and_environment(self):
        code = source("common/scanarg.cc", "common/logconfig.cc")
        letters = set(re.findall(r"^    {'(\w)', \"", code, re.M))
        self.assertGreaterEqual(len(letters), 21)
        self.assertEqual(listed("mox_runtime.7", "Fl"), letters)
        variables = set(re.findall(r'"((?:MOX|KORV)_[A-Z_]+)"', code))
        self.assertGreaterEqual(len(variables), 11)
        self.assertEqual(listed("mox_runtime.7", "Ev"), variables)

    def test_the_example_of_a_configuration_file_is_read(self):
        pathlib.Path(self.folder, "mox.conf").write_text(find(BLOCK, page("mox.conf.5"))[0])
        done = run("runtime_demo", "-c", self.folder + "/mox.conf")
        # No complaint, but what every program logs that leaves the system log alone.
        self.assertRegex(done.stderr, r"\A(.* syslog logging disabled\n)?\Z")
        self.assertRegex(done.stdout, r"\Aacktimeout = 1000\n(node \d+ at \S+:\d+\n)+\Z")

    @unittest.skipUnless(shutil.which("mandoc"), "skipped: mandoc is not installed")
    def test_pages_are_free_of_lint_and_fit_the_terminal(self):
        for name in ("mox_res_mgr.8", "devinit.8", "mox_node.8", "mox.conf.5", "mox_runtime.7"):
            path = SOURCES / "man" / name
            lint = run("mandoc", "-T", "lint", path).stdout.splitlines()
            # Pages of other packages may be missing here.
            self.assertEqual([line for line in lint if "manual not found" not in line], [])
            text = run("mandoc", "-T", "ascii", "-O", "width=78", path).stdout
            self.assertEqual([line for line in re.sub(".\b", "", text).splitlines()
                              if len(line) > 80], [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
