"""The installation as a user has it: console, doctor, launcher, jar, packages, and programs built against it."""
import fcntl
import glob
import json
import os
import pathlib
import pty
import random
import re
import select
import shutil
import signal
import struct
import subprocess
import tempfile
import termios
import time
import unittest

INSTALLATION = os.environ["INSTALLATION"]
BUILD = os.environ["BUILD"]
HERE = os.path.dirname(os.path.abspath(__file__))
JAVA32_HOME = os.environ["TMQKCI_JAVA32_HOME"]
JAVA64_HOME = os.environ["JAVA64"]
JAVA_HOME = os.environ["JAVA"]
FOLDER, SIZE = ("lib", "-m32") if JAVA_HOME == JAVA32_HOME else ("lib64", "-m64")
SECRET = "p4ssw0rd-of-bob"


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.home = folder.name

    def environment(self, **more):
        clean = {"HOME": self.home, "PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "JAVA32_HOME": JAVA_HOME,
                 "LD_LIBRARY_PATH": os.environ["TMQKCI_I386_LIBS"], **more}
        return {name: value for name, value in clean.items() if value is not None}

    def run_program(self, *command, text="", **environment):
        done = subprocess.run(command, input=text, capture_output=True, text=True, timeout=100,
                              env=self.environment(**environment))
        return done.returncode, done.stdout, done.stderr

    def succeed(self, *command, **more):
        status, out, err = self.run_program(*command, **more)
        self.assertEqual(status, 0, out + err)
        return out

    def tmqkci(self, *arguments, **more):
        return self.run_program(INSTALLATION + "/bin/tmqkci", *arguments, **more)

    def write(self, name, text):
        path = pathlib.Path(self.home, name)
        path.write_text(text, "utf-8")
        return str(path)


class Console(Case):
    def test_encodings_and_odd_files(self):
        for variables in ({}, {"LC_ALL": "C"}):
            with self.subTest(variables):
                environment = {"LC_ALL": None, **variables}
                self.assertEqual(self.tmqkci("-e", "'\u65e5\u672c' size", **environment)[:2], (0, "2\n"))
                file = self.write("gr\u00fcn", "\ufeff3\n")
                self.assertEqual(self.tmqkci("-f", file, **environment)[:2], (0, "3\n"))
        with open(self.home + "/latin", "wb") as latin:
            latin.write(b"'\xfc' size\n")
        for rest in "</", "<latin", "-f latin", "-f nowhere", "-u x --password-file nowhere":
            with self.subTest(rest):
                status, out, err = self.shell("cd; tmqkci " + rest)
                self.assertEqual((status, out), (2, ""))
                self.assertRegex(err, "cannot read .*: (Is a directory|there is no such file)|is not UTF-8 text")
        long = "'" + "0123456789\n" * 50000 + "' size\n"
        begin = time.monotonic()
        self.assertEqual(self.tmqkci(text=long)[:2], (0, "550000\n"))
        self.assertLess(time.monotonic() - begin, 30)

    def test_standard_streams_that_are_closed_or_full(self):
        lost = "tmqkci: cannot write to standard output\n"
        for script, expected in {
            "tmqkci -e 3 >/dev/full": (4, "", lost), "tmqkci -e 3 >&-": (4, "", lost),
            "tmqkci --help >/dev/full": (4, "", lost), "tmqkci <&-": (0, "", ""), "tmqkci -e 1/ 2>&-": (1, "", ""),
            "yes 3 | timeout 60 tmqkci | head -1": (0, "3\n", lost),
        }.items():
            with self.subTest(script):
                self.assertEqual(self.shell(script), expected)

    def shell(self, script):
        return self.run_program("sh", "-c", script, PATH=INSTALLATION + "/bin:/usr/bin:/bin")

    def test_inputs_outputs_and_exit_statuses(self):
        lines = "#(1\n2) size\n\n| a b |\na := 3.\nb := 4.\na * b\n\n'one\n\ntwo' size\n" \
                "3 \\\n+ 4\n5 max: 9;\n+ 1\n'ab\\\ncd' size\n-7 \\\\\n2\n$;\n" \
                ":tree (1 to: 1) collect: [:x |\n x * 9]\n"
        values = "2\n12\n8\n7\n6\n6\n1\n$;\nArray (1)\n\u2514\u2500 1: 9\n"
        failing = self.write("failing", '#!/usr/bin/env tmqkci\n"comment"\n6\n\n#(\n) foo\n5\n#(')
        for arguments, text, expected, error in [
            (["-e", "x := 5", "-e", "x + 1"], "", (0, "5\n6\n"), ""),
            (["-e", "nope", "-e", "1"], "", (1, ""), "Error 2189: the name nope is not known\n"),
            (["-e"], "", (2, ""), "-e"), (["--nonsense"], "", (2, ""), "--nonsense"),
            (["-e", "1", "-i"], "", (2, ""), "-i"), (["--limit", "0", "-e", "1"], "", (2, ""), "--limit"),
            (["-f", "/nowhere"], "", (2, ""), "/nowhere"), (["--tree", "1000", "-e", "1"], "", (2, ""), "--tree"),
            (["--json", "doctor"], "", (2, ""), "doctor"),
            (["-e", "@" + HERE + "/run"], "", (1, ""), "Error 2005"),
            (["-f", self.write("lines", lines)], "", (0, values), ""),
            ([], lines + '"cut short', (1, values), "Error 2005"),
            ([], "nil foo\n3\n", (1, "3\n"), "standard input:1: Error 2010"),
            (["-"], "nil foo\n3\n", (1, ""), "#foo"),
            ([failing], "", (1, "6\n"), failing + ":5: Error 2010"),
            (["--on-error", "continue", "-f", failing], "", (1, "6\n5\n"), failing + ":8: Error 2005"),
            (["--on-error", "maybe", "-e", "1"], "", (2, ""), "stop or continue"), (["--json", "--csv"], "", (2, ""), "excl"),
            (["-i"], ":time xyz\n:read /nowhere\n:quit now\n", (0, ""), "cannot read /nowhere: there is no such file"),
            (["-i"], f":set it 2's\n${{'it'}} size\n:format csv\n#('a,b' 3)\n:format markdown\n'|'\n:output /nowhere/x\n",
             (0, "3\nclass,value\nString,\"a,b\"\nSmallInteger,3\n| value |\n| --- |\n| \\| |\n"), "cannot write"),
            (["-i"], f":output {self.home}/o\n3\n:output\n4\n:read {self.home}/o\n", (0, "4\n3\n"), ""),
            (["--text", "3", "-e", "12345"], "", (0, "123... (3 of 5 characters)\n"), ""),
            (["-i"], "nil foo\n3\n:quit\n4\n", (0, "3\n"), "#foo"),
            (["--table", "--limit", "2", "--width", "19", "-e", "#('\u65e5' two 3)"], "",
             (0, "#  class        ...\n-  -------------...\n1  DoubleByteStr...\n2  Symbol       ...\n"
                 "Array (the first 2 of 3, cut at 19 columns)\n"), ""),
            (["-i"], ":table (Dictionary new at: #red put: 1; yourself)\n",
             (0, "#  key   value\n-  ----  -----\n1  #red  1\nDictionary (1 elements)\n"), ""),
            (["-i"], "a := Array new: 2. a at: 1 put: a; at: 2 put: #(5 (6)). 0\n:tree 2 a\n",
             (0, "0\nArray (2)\n\u251c\u2500 1: Array (2) shown above\n\u2514\u2500 2: Array (2)\n"
                 "   \u251c\u2500 1: 5\n   \u2514\u2500 2: Array(6)\n"), ""),
        ]:
            with self.subTest(arguments + [text]):
                status, out, err = self.tmqkci(*arguments, text=text)
                self.assertEqual((status, out), expected, err)
                self.assertIn(error, err)
        out = self.tmqkci("-i", text="nil foo: 'a' \n:error\n")[1]
        for part in ("nil does not understand #foo:", "Number: 2010", "Argument 3: Array('a')", "no method for this"):
            self.assertIn(part, out)

    def test_json(self):
        text = "'a\"\\\u20ac', (10 asCharacter) asString"
        status, out, _ = self.tmqkci("--json", "-e", text, "-e", "nil", "-e", "100000 * 100000", "-e", "1/0")
        first, second, large, third = map(json.loads, out.splitlines())
        self.assertEqual((status, first["value"], first["ok"]), (1, "a\"\\\u20ac\n", True))
        self.assertEqual((second["value"], second["printed"], second["oop"]), (None, "nil", 10))
        self.assertEqual(large["value"], 10 ** 10)
        self.assertEqual((third["ok"], third["error"]["number"]), (False, 2094))
        parts = json.loads(self.tmqkci("--json", "--depth", "2", "--limit", "2", "-e", "{1->#(2 (3)). 'a'. nil}")[1])
        self.assertEqual((parts["value"], parts["size"]), ([{"key": 1, "value": "Array(2 Array(3))"}, "a"], 3))

    def test_the_documented_transcript(self):
        document = pathlib.Path(HERE + "/../../docs/console.md").read_text("utf-8")
        transcript = re.search(r"```\n\$ tar.*?\n\$ cd .*?\n(.*?)```", document, re.S)[1]
        script = "\n".join(re.findall(r"^\$ (.*)$", transcript, re.M))
        expected = re.sub(r"^\$ .*\n", "", transcript, flags=re.M)
        out = self.run_program("sh", text=f"cd {INSTALLATION}; exec 2>&1; {script}")[1]
        numbers = re.compile(r'"(oop|microseconds)":[0-9]+')
        self.assertEqual(numbers.sub("", out), numbers.sub("", expected))

    def test_passwords_stay_secret(self):
        users = {"KCILOCAL_USERS": "bob:" + SECRET}
        file = self.write("secret", SECRET + "\nsecond line\n")
        for arguments, environment, expected in [
            (["--password-file", file], {}, 0),
            ([], {"TMQKCI_PASSWORD": SECRET}, 0),
            (["--json"], {"TMQKCI_PASSWORD": SECRET + "x"}, 3),
            ([], {}, 2),
            (["--password-file", "/nowhere"], {}, 2),
        ]:
            with self.subTest(arguments):
                status, out, err = self.tmqkci("-u", "bob", *arguments, "-e", "System user", **users, **environment)
                self.assertEqual(status, expected, out + err)
                self.assertNotIn(SECRET, out + err)


class Terminal(Case):
    """A session on a pseudo-terminal."""
    def start(self, rows=24, columns=100, **environment):
        self.child, self.terminal = pty.fork()
        if self.child == 0:
            environment = {"TERM": "xterm", "EDITOR": "echo 40 + 3 >", **environment}
            os.execve(INSTALLATION + "/bin/tmqkci", ["tmqkci"], self.environment(**environment))
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.expect("6.7.local.*tmqkci> ")

    def type(self, keys):
        os.write(self.terminal, keys.encode())

    def converse(self, *exchanges):
        for keys, answer in exchanges:
            if keys.startswith("\x03"):
                time.sleep(0.7)  # so that there is something to interrupt
            self.type(keys)
            self.expect(answer)

    def assert_ends(self, end):
        self.type(end)
        for _ in range(300):
            child, status = os.waitpid(self.child, os.WNOHANG)
            if child:
                return self.assertEqual(os.waitstatus_to_exitcode(status), 0)
            time.sleep(0.1)
        os.kill(self.child, signal.SIGKILL)
        os.waitpid(self.child, 0)
        self.fail(f"still there 30 seconds after {end!r}")

    def expect(self, pattern, seconds=60):
        """What came up to the pattern; escape sequences are left out."""
        seen, end = "", time.monotonic() + seconds
        while not re.search(pattern, seen, re.S):
            ready = select.select([self.terminal], [], [], max(0, end - time.monotonic()))[0]
            self.assertTrue(ready, f"no {pattern!r} in {seen!r}")
            try:
                piece = os.read(self.terminal, 4096)
            except OSError:
                piece = b""
            self.assertTrue(piece, f"the end instead of {pattern!r} after {seen!r}")
            seen += re.sub(r"\x1b[\[(]?[0-9;?]*[a-zA-Z=>]", "", piece.decode("utf-8", "replace"))
        return seen

    def test_session(self):
        self.start(rows=24, columns=60)
        self.converse(("3 + 4\r", "\n7\r.*tmqkci> "))
        time.sleep(3)  # names to complete are fetched while nothing is asked
        self.converse(
            ("#(1\r", r"\.\.\.> "),
            ("2) size + 40\r", "\n42\r.*tmqkci> "), (":help\r", "\n {20}json, csv.*tmqkci> "),
            (":tab\t#(8 '\u65e5')\r", "\n1  SmallInteger      8\r.*tmqkci> "), ("5 factori\t\r", "\n120\r.*tmqkci> "),
            ("#(1 2 3) coll\t[:x | x]\r", r"Array\(1 2 3\).*tmqkci> "), ("'ab' asUpp\t\r", "'AB'.*tmqkci> "),
            ("$a asString, (27 asCharacter asString)\r", r"\n'a\\x1b'\r.*tmqkci> "),
            (":pager on\r", "tmqkci> "), (":tree Array new: 50\r", "21: nil"), ("q", "tmqkci> "),
            (":edit 1\r", r"\n43\r.*tmqkci> "),
            ("System waitMilliseconds: 1500\r", "1500"), ("\x03", "interrupted.*tmqkci> "),
            ("Shared at: #a put: 3\r", r"tmqkci\*> "), (":commit\r", "tmqkci> "),
            ("6 * \x03", "tmqkci> "), ("6 * 7\r", "\n42\r.*tmqkci> "))
        self.assert_ends("\x04")
        history = self.home + "/.local/state/tmqkci/history"
        self.assertEqual(os.stat(history).st_mode & 0o777, 0o600)

    def test_any_number_of_interrupts(self):
        self.start()
        for i in range(1000):
            self.type(["", "3 + 4\r", "System waitMilliseconds: 9\r", "#(1\r", "5 fac\t"][i // 7 % 5 * (i % 7 == 0)] + "\x03")
            time.sleep(random.choice([0, 0.001, 0.008]))
            while select.select([self.terminal], [], [], 0)[0]:
                os.read(self.terminal, 65536)
        while select.select([self.terminal], [], [], 2)[0]:  # until the last ones have had their effect
            os.read(self.terminal, 65536)
        self.converse(("\x03", "tmqkci> "), ("6 * 7\r", "\n42\r.*tmqkci> "))
        self.assert_ends("\x04")

    def test_ends_in_spite_of_a_call_that_never_does(self):
        self.start()
        self.converse(("[true] whileTrue: []\r", "true"), ("\x03", "interrupted; the server has stopped it.*tmqkci> "),
                      ("5 fac\t", "fac"), ("\x03\x15:time\r", "tmqkci> "))
        self.assert_ends(":quit\r")

    def test_poor_terminals(self):
        os.makedirs(self.home + "/state/tmqkci/history")  # where a file should be
        self.start(rows=0, columns=0, XDG_STATE_HOME=self.home + "/state")
        self.converse((":tab\t#(8)\r", "SmallInteger  8.*tmqkci> "))
        self.assert_ends("\x04")
        self.start(TERM="dumb")
        self.converse(("#(1\r", r"\.\.\.> "), ("\x03", "tmqkci> "), ("3 + 4\r", "\n7\r.*tmqkci> "))
        self.assert_ends("\x04")


class Doctor(Case):
    def doctor(self, *java, **environment):
        status, out, err = self.tmqkci(*java, "doctor", "--json", **environment)
        self.assertEqual(err, "")
        answer = json.loads(out)
        return status, answer["loginPossible"], {f["subject"]: (f["grade"], f["text"]) for f in answer["findings"]}

    def test_all_well(self):
        status, possible, found = self.doctor()
        self.assertEqual((status, possible, "failure" in str(found)), (0, True, False), found)
        self.assertIn("6.7.local", found["initialization"][1])
        self.assertIn("SEGV", found["signals of Java"][1])
        self.assertIn("\nA login can be tried.\n", self.tmqkci("doctor")[1])

        self.assertRegex(self.tmqkci("doctor", "--login")[1], "logged in as .* ms, evaluated .* ms, logged out in .* ms\n")
        status, out, _ = self.tmqkci("doctor", "--login", "-u", "bob", TMQKCI_PASSWORD=SECRET)
        self.assertEqual((status, "Error 4051" in out, SECRET in out), (3, True, False), out)

    def test_hosted_client_libraries(self):
        other = "lib64" if FOLDER == "lib" else "lib"
        os.makedirs(f"{self.home}/k/{FOLDER}")
        shutil.copy(f"{INSTALLATION}/{other}/libkcilnk67.so", f"{self.home}/k/{FOLDER}")
        for arguments, environment in [(["--rpc"], {}), ([], {"KCIRTL_HOST": "1"}), ([], {"KESTRUNE": self.home + "/k"})]:
            status, out, _ = self.tmqkci("doctor", "--login", *arguments, **environment)
            self.assertEqual((status, "in a host process" in out, "logged in as" in out), (0, True, True), out)

    def test_the_loader_looks_where_the_doctor_says(self):
        k = self.home + "/k"
        os.makedirs(k + "/lib")
        os.makedirs(k + "/lib64", exist_ok=True)
        named = {"KCIRTL_BASELIBNAME": "abc", "KCIRTL_VERSION": "70"}
        self.write("k/lib/libabcrpc70.so", "no library")
        for arguments, environment in [([], {}), (["--rpc"], {}), ([], named), (["--rpc"], named)]:
            with self.subTest(arguments, **environment):
                out = self.tmqkci(*arguments, "-e", "3", KESTRUNE=k, **environment)[1]
                places = [(subject, text) for subject, (_, text) in self.doctor(*arguments, KESTRUNE=k, **environment)[2].items()
                          if subject.startswith("places of the client library")]
                name = places[0][0].split()[-1]
                self.assertEqual(re.findall(r"dlopen\((.*)\) failure", out), [places[0][1].split(", ")[0] + "/" + name, name])

    def test_permissions_near_misses_and_unfit_client_libraries(self):
        # What root may do in spite of permissions is taken away.
        bounded = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
        lacking = self.write("lacking.c", "int absent(void); int KciGetRtlTable(void) { return absent(); }")
        whole = self.write("whole.c", "int KciGetRtlTable(void) { return 0; } int absent(void) { return 0; }")
        compiled = f"gcc {SIZE} -shared -fPIC -nostdlib"
        unfit = f"{compiled} {whole} -o $K/lib/libkcilnk67.so"
        build = f"{compiled} {whole} -Wl,-soname,libfoo2.so.3 -o $K/absent.so && " \
                f"{compiled} {lacking} $K/absent.so -o $K/lib/libkcilnk67.so"
        for change, expected in [
            ("chmod 0 $K/lib/libkcilnk67.so", "FAIL  client library.* may not be read by .*chmod a\\+r"),
            ("chmod 0 $K/lib", "FAIL  KESTRUNE.* may not be searched by .*chmod a\\+x.*\n      so: client library.*\n"
                               "      so: initialization"),
            ("chmod -x $K/bin/gstack", "warn  stack printer.* may not be run by"),
            ("mv $K/lib/libkcilnk67.so $K/lib/libkcilnk70.so", "none that could be opened\n.*set KCIRTL_VERSION=70"),
            (build, "-> install libfoo2-3" + (" .*libfoo2-3:i386" if FOLDER == "lib" else "")),
            (f"cp {whole} $K/lib/libkcilnk67.so", "FAIL  .*not a shared library"), (unfit, "FAIL  initialization"),
            (unfit + " -DKciGetRtlTable=other", "FAIL  .*does not export KciGetRtlTable"),
            (unfit + " -z execstack", "warn  client library.*asks for an executable stack"),
        ]:
            with self.subTest(change):
                copy = f"rm -rf $K && mkdir -p $K/lib && cp -r $I/bin $I/sys $K && cp $I/lib/*.so $K/lib && {change}"
                self.succeed("sh", "-c", re.sub("/lib(?=[/ ]|$)", "/" + FOLDER, copy), K=self.home + "/k", I=INSTALLATION)
                status, out, _ = self.run_program(*bounded, INSTALLATION + "/bin/tmqkci", "doctor", KESTRUNE=self.home + "/k")
                self.run_program("chmod", "-R", "u+rwX", self.home + "/k")
                self.assertEqual((bool(re.search(expected, out, re.S)), out.count("FAIL") < 2), (True, True), out)
                self.assertEqual((status, glob.glob("hs_err*")), (3 if "FAIL" in out else 0, []), out)


class Launcher(Case):
    def test_which_java(self):
        old = self.home + "/old"
        os.makedirs(old)
        os.symlink(JAVA32_HOME + "/bin", old + "/bin")
        broken = self.home + "/broken"
        os.makedirs(broken + "/bin")
        shutil.copy(JAVA32_HOME + "/bin/java", broken + "/bin")  # without what it needs
        self.write("old/release", 'JAVA_VERSION="11.0.2"\n')
        for folder in "lib", "lib64":
            os.makedirs(f"{self.home}/{folder}-only/bin")
            shutil.copy(INSTALLATION + "/bin/tmqkci", f"{self.home}/{folder}-only/bin")
            for part in folder, "share":
                os.symlink(f"{INSTALLATION}/{part}", f"{self.home}/{folder}-only/{part}")
        for installation, environment, arguments, expected in [
            ("lib-only", {"JAVA32_HOME": None}, [], (3, "apt-get install openjdk-17-jre-headless:i386")),
            ("lib-only", {"JAVA32_HOME": JAVA64_HOME}, [], (3, "not a 32-bit (i386) one")),
            ("", {"JAVA32_HOME": None}, [], (0, "")), ("", {"JAVA32_HOME": JAVA64_HOME}, [], (0, "")),
            ("", {"JAVA32_HOME": "/nowhere"}, [], (3, "no Java in /nowhere")),
            ("", {"JAVA32_HOME": "/nowhere"}, ["--java", "/elsewhere"], (2, "no Java in /elsewhere")),
            ("", {"JAVA32_HOME": "/nowhere"}, ["--java", JAVA32_HOME], (0, "")),
            ("", {}, ["--java", ""], (2, "--java needs the folder")), ("", {}, ["--java="], (2, "--java needs the folder")),
            ("", {"JAVA32_HOME": old}, [], (3, "of version 11, not 17 or later")),
            ("lib-only", {"JAVA32_HOME": None, "JAVA_HOME": old}, [], (3, "openjdk-17-jre-headless:i386")),
            ("lib-only", {"JAVA32_HOME": None, "JAVA_HOME": broken}, [], (3, "passing over " + broken)),
            ("", {"JAVA32_HOME": None, "JAVA_HOME": broken, "PATH": JAVA32_HOME + "/bin:/usr/bin"}, [], (0, "passing over")),
            ("", {"JAVA32_HOME": "/nowhere"}, ["--help"], (0, "")),
            ("", {"JAVA32_HOME": broken}, ["doctor"], (3, "")),
        ]:
            if expected[0] == 3 and environment["JAVA32_HOME"] is None and glob.glob("/usr/lib/jvm/*i386*"):
                continue  # this machine has one in a known place
            with self.subTest([installation, environment]):
                launcher = (self.home + "/" + installation if installation else INSTALLATION) + "/bin/tmqkci"
                expression = [] if {"--help", "--version", "doctor"} & {*arguments} else ["-e", "1"]
                status, _, err = self.run_program(launcher, *arguments, *expression, **environment)
                self.assertEqual((status, err if expected == (0, "") else ""), (expected[0], ""), err)
                self.assertIn(expected[1], err)

    def test_by_a_link_and_read_only(self):
        os.symlink(INSTALLATION, self.home + "/installed")
        os.symlink("installed/bin/tmqkci", self.home + "/tmqkci")
        self.assertEqual(self.run_program(self.home + "/tmqkci", "-e", "3")[:2], (0, "3\n"))
        relative = "cd " + INSTALLATION + " && exec bin/tmqkci -e 3"
        self.assertEqual(self.run_program("sh", "-c", relative, CDPATH="/usr")[:2], (0, "3\n"))


class BundledLibrary(Case):
    PROGRAM = """import com.kestrune.tmqkci.*;
    public class Where { public static void main(String[] a) {
        TmqKciLibrary.load();
        Module module = com.kestrune.tmqkci.TmqKciLibrary.class.getModule();
        System.out.println(com.kestrune.tmqkci.TmqKciLibrary.location() + (module.isNamed() ? " " + module : ""));
        if (a.length > 0) {
            try (KciSession session = KciSession.login(
                    new KciLoginOptions().server("local").user("guest").password("guest".toCharArray()))) {
                System.out.println(session.execute(a[0])); } } } }"""

    def setUp(self):
        super().setUp()
        self.jar = shutil.copy(INSTALLATION + "/lib/tmqkci.jar", self.home)
        for machine, folder, host in [("i386", "lib", "tmqkci-host32"), ("amd64", "lib64", "tmqkci-host64")]:
            native = self.home + "/META-INF/native/linux-" + machine
            os.makedirs(native)
            for file in [folder + "/libtmqkci313.so", folder + "/libkcirpc67.so", "bin/" + host]:
                shutil.copy(f"{INSTALLATION}/{file}", native)
        subprocess.run(["jar", "--update", "--file", self.jar, "META-INF"], check=True, cwd=self.home)
        subprocess.run(["javac", "-cp", self.jar, self.write("Where.java", self.PROGRAM)], check=True)
        self.command = [JAVA_HOME + "/bin/java", "-XX:+UseSerialGC",
                        "-Djava.io.tmpdir=" + self.home, "-cp", self.jar + ":" + self.home, "Where"]
        self.cache = self.home + "/.cache/tmqkci"

    def where(self, *prefix, **more):
        return self.succeed(*prefix, *self.command, **more).strip()

    def test_as_a_module(self):
        self.assertIn("libtmqkci313.so module com.kestrune.tmqkci", self.succeed(
            JAVA_HOME + "/bin/java", "--module-path", self.jar, "--add-modules", "com.kestrune.tmqkci", "-cp", self.home,
            "Where"))

    def test_unpacked_once_by_several_at_once(self):
        running = [subprocess.Popen(self.command, env=self.environment(), stdout=subprocess.PIPE, text=True)
                   for _ in range(4)]
        places = {process.communicate(timeout=100)[0].strip() for process in running}
        self.assertEqual(len(places), 1, places)
        file = places.pop()
        self.assertRegex(file, re.escape(self.cache) + "/[0-9a-f]{64}/libtmqkci313.so$")
        self.assertEqual(sorted(os.listdir(os.path.dirname(file))),
                         ["libkcirpc67.so", "libtmqkci313.so", "tmqkci-host32", "tmqkci-host64"])
        self.assertEqual(os.stat(file).st_mode & 0o077, 0)
        self.write(file, "damaged!")
        self.assertEqual(self.where(), file)
        self.assertEqual(self.where(KESTRUNE=self.home + "/with-client-libraries-only"), file)

    def test_opens_client_libraries_of_the_other_word_size(self):
        os.makedirs(f"{self.home}/k/{FOLDER}")
        other = "lib64" if FOLDER == "lib" else "lib"
        shutil.copy(f"{INSTALLATION}/{other}/libkcilnk67.so", f"{self.home}/k/{FOLDER}")
        self.assertEqual(self.succeed(*self.command, "3 + 4", KESTRUNE=self.home + "/k").split("\n")[1], "7")

    def test_a_full_disk_leaves_nothing_behind(self):
        status, out, err = self.run_program("prlimit", "--fsize=100000", *self.command)
        self.assertEqual((status, out), (1, ""))
        self.assertRegex(err, "copy in the jar: it can be unpacked neither into the cache .*File too large.*"
                              "nor into a temporary folder .*File too large")
        self.assertEqual(glob.glob(self.home + "/tmqkci*/") + glob.glob(self.cache + "/*/*"), [])

    def test_what_others_can_write_to_is_not_used(self):
        file = self.where()
        for prepare in [lambda: os.chmod(os.path.dirname(file), 0o720), lambda: os.chmod(os.path.dirname(file), 0o702),
                        lambda: (shutil.rmtree(self.cache), os.mkdir(self.home + "/trap"),
                                 os.symlink(self.home + "/trap", self.cache))]:
            prepare()
            place = self.where()
            self.assertFalse(place.startswith(self.cache), place)
            self.assertFalse(os.path.exists(os.path.dirname(place)))
        self.assertEqual(os.listdir(self.home + "/trap"), [])

    def test_a_cache_that_others_could_exchange_is_not_used(self):
        above = self.home + "/above"
        cache, link = above + "/any/cache", self.home + "/link"
        os.makedirs(cache)
        os.symlink(cache, link)
        self_id = os.geteuid()
        for mode, owner, named, used in [(0o777, self_id, cache, False), (0o770, self_id, above + "/missing", False),
                                         (0o755, 65534, link, False), (0o1777, self_id, link, True)]:
            if owner == self_id or self_id == 0:  # only root gives folders away
                os.chmod(above, mode)
                os.chown(above, owner, -1)
                place = self.where(XDG_CACHE_HOME=named)
                self.assertEqual(place.startswith(above), used, (mode, owner, place))
        # Where there is no other place, none is used.
        os.chmod(above, 0o777)
        status, out, err = self.run_program(*self.command[:1], "-Djava.io.tmpdir=" + above, *self.command[3:],
                                            XDG_CACHE_HOME=above)
        self.assertEqual((status, out), (1, ""))
        self.assertRegex(err, "neither into the cache .*/above can be written to by others.*temporary folder .*/above can")

    def test_a_cache_from_which_nothing_is_executed(self):
        os.makedirs(self.cache)
        script = 'mount -t tmpfs -o noexec none "$HOME/.cache" && exec "$@"'
        private = ["unshare", "--map-root-user", "--mount"]
        if self.run_program(*private, "true")[0] != 0:
            self.skipTest("this machine allows no mounts of one's own")
        place = self.where(*private, "sh", "-c", script, "sh")
        self.assertRegex(place, self.home + "/tmqkci[^/]*/libtmqkci313.so$")

    def test_the_strictest_umask(self):
        place = self.where("sh", "-c", 'umask 777; exec "$@"', "sh")
        self.assertTrue(place.startswith(self.cache), place)
        for folder in glob.glob(self.home + "/.cache/**/", recursive=True):
            self.assertEqual(os.stat(folder).st_mode & 0o777, 0o700, folder)


class Consumers(Case):
    def test_cmake_package_in_c17(self):
        command = ["cmake", "-G", "Ninja", "-S", HERE + "/consumer", "-B", self.home, "-DCMAKE_PREFIX_PATH=" + INSTALLATION]
        for size in "-m32", "-m64":
            self.succeed(*command, "--fresh", "-DCMAKE_C_FLAGS=" + size)
            self.succeed("cmake", "--build", self.home)
            self.assertRegex(self.run_program(self.home + "/consumer")[1], r"^1 .*open\(nowhere\)")

    def test_pkg_config_in_cxx20(self):
        for folder in "/lib", "/lib64":
            flags = self.succeed("pkg-config", "--cflags", "--libs", "tmqkci",
                                 PKG_CONFIG_PATH=INSTALLATION + folder + "/pkgconfig").split()
            program = self.home + "/consumer"
            self.succeed("g++", "-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-o", program,
                         "-x", "c++", HERE + "/consumer/main.c", "-x", "none", *flags, "-Wl,-rpath," + INSTALLATION + folder)
            self.assertRegex(self.run_program(program)[1], r"^1 .*open\(nowhere\)")


class DebianPackage(Case):
    def test_contents_and_use(self):
        packages = self.home + "/packages"
        for architecture, java, kind in ("i386", JAVA32_HOME, 1), ("amd64", JAVA64_HOME, 2):
            self.succeed("sh", "-c", f"umask 077; exec cpack -G DEB -B {packages} --config {BUILD}/CPackConfig.cmake "
                         f"-D TMQKCI_ARCHITECTURE={architecture}", LD_LIBRARY_PATH=None)
            package = glob.glob(f"{packages}/tmqkci_*_{architecture}.deb")[0]
            complaints = self.run_program("lintian", package, *glob.glob(f"{packages}/tmqkci-dbgsym_*_{architecture}.deb"))[1]
            self.assertNotRegex(complaints, "(?m)^[EW]: ")
            root = f"{self.home}/{architecture}"
            self.succeed("dpkg-deb", "-x", package, root)
            declared = re.fullmatch(r"libc6 \(>= 2\.([0-9]+)\)\n", self.succeed("dpkg-deb", "-f", package, "Depends"))[1]
            documents = pathlib.Path(root + "/usr/share/doc/tmqkci")
            self.assertIn(f"from glibc 2.{declared} on", (documents / "installation.md").read_text("utf-8"))
            binaries = [path for path in pathlib.Path(root).rglob("*")
                        if path.is_file() and path.read_bytes().startswith(b"\x7fELF")]
            self.assertLessEqual({"libtmqkci313.so", "libkcilnk67.so", "gstack", "errmsgc"},
                                 {path.name for path in binaries if path.read_bytes()[4] == kind})
            for path in binaries:
                needed = re.findall(r" (\S+@GLIBC_2\.([0-9]+))", self.succeed("readelf", "-W", "--dyn-syms", str(path)))
                self.assertGreater(len(needed), 10, path)
                self.assertEqual([symbol for symbol, minor in needed if int(minor) > int(declared)], [], path)
            self.assertEqual(self.succeed(root + "/usr/bin/tmqkci", "--java", java, "-e", "'hello' size"), "5\n")
            self.succeed(root + "/usr/bin/tmqkci", "--java", java, "doctor")
