"""The installation as a user has it: console, doctor, launcher, jar, packages, and programs built against it."""
import fcntl
import glob
import json
import os
import pty
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
JAVA64_HOME = "/usr/lib/jvm/java-17-openjdk-amd64"
SECRET = "p4ssw0rd-of-bob"


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.home = folder.name

    def environment(self, **more):
        clean = {"HOME": self.home, "PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "JAVA32_HOME": JAVA32_HOME,
                 "LD_LIBRARY_PATH": os.environ["TMQKCI_I386_LIBS"], **more}
        return {name: value for name, value in clean.items() if value is not None}

    def run_program(self, *command, text="", **environment):
        done = subprocess.run(command, input=text, capture_output=True, text=True, timeout=100,
                              env=self.environment(**environment))
        return done.returncode, done.stdout, done.stderr

    def tmqkci(self, *arguments, **more):
        return self.run_program(INSTALLATION + "/bin/tmqkci", *arguments, **more)

    def write(self, name, text):
        path = os.path.join(self.home, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path


class Console(Case):
    def test_expressions_and_exit_statuses(self):
        for arguments, expected in {
            ("-e", "3 + 4"): (0, "7\n", ""),
            ("-e", "x := 5", "-e", "x + 1"): (0, "5\n6\n", ""),
            ("-e", "nope", "-e", "1"): (1, "", "Error 2189: the name nope is not known\n"),
            ("-e", "w'\u20ac'"): (0, "w'\u20ac'\n", ""),
            ("-e",): (2, "", None), ("--nonsense",): (2, "", None), ("-e", "1", "-i"): (2, "", None),
            ("-f", "/nowhere"): (2, "", None), ("--limit", "0", "-e", "1"): (2, "", None),
            ("--tree", "1000", "-e", "1"): (2, "", None), ("--tree", "1", "--table", "-e", "1"): (2, "", None),
            ("-e", "1", "doctor"): (2, "", None), ("--json", "doctor"): (2, "", None),
            ("-e", "@" + HERE + "/run"): (1, "", None),
        }.items():
            with self.subTest(arguments):
                status, out, err = self.tmqkci(*arguments)
                self.assertEqual((status, out), expected[:2], err)
                if expected[2] is not None:
                    self.assertEqual(err, expected[2])

    def test_inputs_of_several_lines(self):
        text = "#(1\n2) size\n\n| a b |\na := 3.\nb := 4.\na * b\n\n'one\n\ntwo' size\n" \
               "3 \\\n+ 4\n5 max: 9;\n+ 1\n'ab\\\ncd' size\n-7 \\\\\n2\n$;\n" \
               ":tree (1 to: 1) collect: [:x |\n x * 9]\n\"end"
        expected = "2\n12\n8\n7\n6\n6\n1\n$;\nArray (1)\n\u2514\u2500 1: 9\n"
        status, out, err = self.tmqkci(text=text)
        self.assertEqual((status, out), (1, expected), err)
        self.assertIn("Error 2005", err)  # the comment that the end cuts short
        self.assertEqual(self.tmqkci("-f", self.write("a", text.replace("\n\"end", "")))[:2], (0, expected))

    def test_encodings_and_odd_files(self):
        for variables in ({}, {"LC_ALL": "C"}, {"LC_CTYPE": "POSIX"}):
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

    def test_errors_in_standard_input(self):
        self.assertEqual(self.tmqkci(text="nil foo\n3\n")[:2], (1, "3\n"))
        self.assertEqual(self.tmqkci("-i", text="nil foo\n3\n:quit\n4\n")[:2], (0, "3\n"))
        out = self.tmqkci("-i", text="nil foo: 'a' \n:error\n")[1]
        for part in ("nil does not understand #foo:", "Number: 2010", "Argument 3: Array('a')", "no method for this"):
            self.assertIn(part, out)

    def test_tables_and_trees(self):
        out = self.tmqkci("--table", "--limit", "2", "-e", "#(1 two 3)")[1]
        self.assertEqual(out, "#  class         value\n-  ------------  -----\n1  SmallInteger  1\n2  Symbol        #two\n"
                              "Array (the first 2 of 3)\n")
        out = self.tmqkci("-i", text=":table (Dictionary new at: #red put: 1; yourself)\n")[1]
        self.assertEqual(out, "#  key   value\n-  ----  -----\n1  #red  1\nDictionary (1 elements)\n")
        out = self.tmqkci("-i", text="a := Array new: 2. a at: 1 put: a; at: 2 put: #(5 (6)). 0\n:tree 2 a\n")[1]
        self.assertEqual(out, "0\nArray (2)\n\u251c\u2500 1: Array (2) shown above\n\u2514\u2500 2: Array (2)\n"
                              "   \u251c\u2500 1: 5\n   \u2514\u2500 2: Array(6)\n")

    def test_json(self):
        text = "'a\"\\\u20ac', (10 asCharacter) asString"
        status, out, _ = self.tmqkci("--json", "-e", text, "-e", "nil", "-e", "100000 * 100000", "-e", "1/0")
        first, second, large, third = map(json.loads, out.splitlines())
        self.assertEqual((status, first["value"], first["ok"]), (1, "a\"\\\u20ac\n", True))
        self.assertEqual((second["value"], second["printed"], second["oop"]), (None, "nil", 10))
        self.assertEqual(large["value"], 10 ** 10)
        self.assertEqual((third["ok"], third["error"]["number"]), (False, 2094))

    def test_the_documented_transcript(self):
        with open(HERE + "/../../docs/console.md", encoding="utf-8") as file:
            transcript = re.search(r"```\n\$ tar.*?\n\$ cd .*?\n(.*?)```", file.read(), re.S)[1]
        script = "\n".join(re.findall(r"^\$ (.*)$", transcript, re.M))
        expected = re.sub(r"^\$ .*\n", "", transcript, flags=re.M)
        out = subprocess.run(["sh"], input=script, cwd=INSTALLATION, env=self.environment(), timeout=100, text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT).stdout
        numbers = re.compile(r'"(oop|microseconds)":[0-9]+')
        self.assertEqual(numbers.sub("", out), numbers.sub("", expected))

    def test_passwords_stay_secret(self):
        users = {"KCILOCAL_USERS": "bob:" + SECRET}
        file = self.write("secret", SECRET + "\nsecond line\n")
        for arguments, environment, expected in [
            (["--password-file", file], {}, 0),
            ([], {"TMQKCI_PASSWORD": SECRET}, 0),
            ([], {"TMQKCI_PASSWORD": SECRET + "x"}, 3),
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
            os.execve(INSTALLATION + "/bin/tmqkci", ["tmqkci"], self.environment(**{"TERM": "xterm", **environment}))
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.expect("6.7.local.*tmqkci> ")

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

    def type(self, text):
        os.write(self.terminal, text.encode())

    def test_session(self):
        self.start()
        self.type("3 + 4\r")
        self.expect("\n7\r.*tmqkci> ")
        self.type("#(1\r")
        self.expect(r"\.\.\.> ")
        self.type("2) size + 40\r")
        self.expect("\n42\r.*tmqkci> ")
        self.type(":tab\t#(8)\r")
        self.expect("SmallInteger  8.*tmqkci> ")
        self.type("5 factori\t\r")
        self.expect("\n120\r.*tmqkci> ")
        self.type("System waitMilliseconds: 1500\r")
        time.sleep(0.7)
        self.type("\x03")
        self.expect("interrupted.*tmqkci> ")
        self.type("6 * \x03")
        self.expect("tmqkci> ")
        self.type("6 * 7\r")
        self.expect("\n42\r.*tmqkci> ")
        self.assert_ends("\x04")
        history = self.home + "/.local/state/tmqkci/history"
        self.assertEqual(os.stat(history).st_mode & 0o777, 0o600)

    def test_ends_in_spite_of_a_call_that_never_does(self):
        self.start()
        self.type("[true] whileTrue: []\r")
        time.sleep(0.7)
        self.type("\x03")
        self.expect("interrupted.*tmqkci> ")
        self.type("5 fac\t")  # asks the server, and waits
        time.sleep(0.7)
        self.type("\x03\x15:time\r")
        self.expect("tmqkci> ")
        self.assert_ends(":quit\r")

    def test_poor_terminals(self):
        os.makedirs(self.home + "/state/tmqkci/history")  # where a file should be
        self.start(rows=0, columns=0, XDG_STATE_HOME=self.home + "/state")
        self.type(":tab\t#(8)\r")
        self.expect("SmallInteger  8.*tmqkci> ")
        self.assert_ends("\x04")
        self.start(TERM="dumb")
        self.assert_ends("\x04")


class Doctor(Case):
    def doctor(self, *java, **environment):
        status, out, err = self.tmqkci(*java, "doctor", "--json", **environment)
        self.assertEqual(err, "")
        answer = json.loads(out)
        return status, answer["loginPossible"], {f["subject"]: (f["grade"], f["text"]) for f in answer["findings"]}

    def test_all_well(self):
        status, possible, found = self.doctor()
        self.assertEqual((status, possible), (0, True), found)
        self.assertEqual({s for s, (grade, _) in found.items() if grade == "failure"}, set())
        self.assertIn("6.7.local", found["initialization"][1])
        self.assertIn("SEGV", found["signals of Java"][1])
        self.assertIn("\nA login can be tried.\n", self.tmqkci("doctor")[1])

    def test_a_64_bit_java(self):
        status, possible, found = self.doctor("--java", JAVA64_HOME, LD_LIBRARY_PATH=None)
        self.assertEqual((status, possible, found["Java"][0]), (3, False, "failure"))
        self.assertEqual(found["client library libkcilnk67.so"][0], "ok")

    def test_unfit_client_libraries(self):
        os.makedirs(self.home + "/k/lib")
        library = self.home + "/k/lib/libkcilnk67.so"
        source = self.write("a.c", "int KciGetRtlTable(void) { return 0; }")
        bare = ["gcc", "-shared", "-fPIC", "-nostdlib", "-o", library, source]
        for command, expected in [
            (["cp", "/usr/bin/true", library], "64-bit (x86-64)"),
            (["cp", source, library], "not an ELF file"),
            (["dd", "if=" + INSTALLATION + "/lib/libkcilnk67.so", "of=" + library, "bs=3000", "count=1"], "damaged"),
            (bare + ["-m32", "-DKciGetRtlTable=other"], "does not export KciGetRtlTable"),
            (bare + ["-m32", "-z", "execstack"], "asks for an executable stack"),
            (bare + ["-m32"], "initialization"),
            (["rm", library], "there is none that could be opened"),
        ]:
            with self.subTest(expected):
                subprocess.run(command, check=True, capture_output=True)
                status, possible, found = self.doctor(KESTRUNE=self.home + "/k")
                self.assertEqual((status, possible), (3, False), found)
                self.assertIn(expected, str(found))
                self.assertEqual(glob.glob("hs_err*"), [])


class Launcher(Case):
    def test_which_java(self):
        for environment, arguments, expected in [
            ({"JAVA32_HOME": None}, [], (3, "apt-get install openjdk-17-jre-headless:i386")),
            ({"JAVA32_HOME": JAVA64_HOME}, [], (3, "not a 32-bit")),
            ({"JAVA32_HOME": "/nowhere"}, [], (3, "no Java in /nowhere")),
            ({"JAVA32_HOME": "/nowhere"}, ["--java", "/elsewhere"], (2, "no Java in /elsewhere")),
            ({"JAVA32_HOME": "/nowhere"}, ["--java", JAVA32_HOME], (0, "")),
            ({"JAVA32_HOME": None, "JAVA_HOME": JAVA32_HOME}, [], (0, "")),
        ]:
            if expected[0] == 3 and environment["JAVA32_HOME"] is None and glob.glob("/usr/lib/jvm/*i386*"):
                continue  # this machine has one in a known place
            with self.subTest(environment):
                status, _, err = self.tmqkci(*arguments, "-e", "1", **environment)
                self.assertEqual(status, expected[0], err)
                self.assertIn(expected[1], err)

    def test_by_a_link_and_read_only(self):
        os.symlink(INSTALLATION, self.home + "/installed")
        os.symlink("installed/bin/tmqkci", self.home + "/tmqkci")
        self.assertEqual(self.run_program(self.home + "/tmqkci", "-e", "3")[:2], (0, "3\n"))


class BundledLibrary(Case):
    PROGRAM = """public class Where { public static void main(String[] a) {
        com.kestrune.tmqkci.TmqKciLibrary.load();
        System.out.println(com.kestrune.tmqkci.TmqKciLibrary.location()); } }"""

    def setUp(self):
        super().setUp()
        self.jar = shutil.copy(INSTALLATION + "/lib/tmqkci.jar", self.home)
        os.makedirs(self.home + "/META-INF/native/linux-i386")
        shutil.copy(INSTALLATION + "/lib/libtmqkci313.so", self.home + "/META-INF/native/linux-i386")
        subprocess.run(["jar", "--update", "--file", self.jar, "META-INF"], check=True, cwd=self.home)
        subprocess.run(["javac", "-cp", self.jar, self.write("Where.java", self.PROGRAM)], check=True)
        self.command = [JAVA32_HOME + "/bin/java", "-XX:+UseSerialGC",
                        "-Djava.io.tmpdir=" + self.home, "-cp", self.jar + ":" + self.home, "Where"]
        self.cache = self.home + "/.cache/tmqkci"

    def where(self):
        status, out, err = self.run_program(*self.command)
        self.assertEqual(status, 0, err)
        return out.strip()

    def test_unpacked_once_by_several_at_once(self):
        running = [subprocess.Popen(self.command, env=self.environment(), stdout=subprocess.PIPE, text=True)
                   for _ in range(4)]
        places = {process.communicate(timeout=100)[0].strip() for process in running}
        self.assertEqual(len(places), 1, places)
        file = places.pop()
        self.assertRegex(file, re.escape(self.cache) + "/[0-9a-f]{64}/libtmqkci313.so$")
        self.assertEqual(os.listdir(os.path.dirname(file)), ["libtmqkci313.so"])
        self.assertEqual(os.stat(file).st_mode & 0o077, 0)
        with open(file, "r+b") as damaged:
            damaged.write(b"damaged!")
        self.assertEqual(self.where(), file)

    def test_equal_files_make_equal_jars(self):
        jars = []
        for name, files in ("a", ("x", "y")), ("b", ("y", "x")):
            for file in files:
                os.makedirs(f"{self.home}/{name}", exist_ok=True)
                self.write(f"{name}/{file}", file)
            os.utime(f"{self.home}/{name}/x", (len(jars), len(jars)))
            jars.append(f"{self.home}/{name}.jar")
            subprocess.run([HERE + "/../../java/make-jar", "jar", jars[-1], f"{self.home}/{name}"], check=True)
        first, second = (open(jar, "rb").read() for jar in jars)
        self.assertEqual(first, second)

    def test_what_others_can_write_to_is_not_used(self):
        file = self.where()
        for prepare in [lambda: os.chmod(os.path.dirname(file), 0o777),
                        lambda: (shutil.rmtree(self.cache), os.mkdir(self.home + "/trap"),
                                 os.symlink(self.home + "/trap", self.cache))]:
            prepare()
            place = self.where()
            self.assertFalse(place.startswith(self.cache), place)
            self.assertFalse(os.path.exists(os.path.dirname(place)))
        self.assertEqual(os.listdir(self.home + "/trap"), [])


class Consumers(Case):
    def test_cmake_package_in_c17(self):
        command = ["cmake", "-G", "Ninja", "-S", HERE + "/consumer-c", "-B", self.home, "-DCMAKE_PREFIX_PATH=" + INSTALLATION]
        status, out, err = self.run_program(*command)
        self.assertNotEqual(status, 0)
        self.assertIn("configure with -m32", out + err)
        os.remove(self.home + "/CMakeCache.txt")
        for step in (command + ["-DCMAKE_C_FLAGS=-m32"], ["cmake", "--build", self.home]):
            status, out, err = self.run_program(*step)
            self.assertEqual(status, 0, out + err)
        self.assertRegex(self.run_program(self.home + "/consumer")[1], r"^1 .*open\(nowhere\)")

    def test_pkg_config_in_cxx20(self):
        flags = subprocess.run(["pkg-config", "--cflags", "--libs", "tmqkci"], check=True, text=True,
                               env={**os.environ, "PKG_CONFIG_PATH": INSTALLATION + "/lib/pkgconfig"},
                               capture_output=True).stdout.split()
        program = self.home + "/consumer"
        subprocess.run(["g++", "-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-o", program,
                        HERE + "/consumer-cpp/main.cpp", *flags, "-Wl,-rpath," + INSTALLATION + "/lib"], check=True)
        self.assertEqual(self.run_program(program, KESTRUNE=INSTALLATION)[1], "[no.such.symbol 42]\n")


class DebianPackage(Case):
    def test_contents_and_use(self):
        packages = self.home + "/packages"
        subprocess.run(["cpack", "-G", "DEB", "-B", packages, "--config", BUILD + "/CPackConfig.cmake"], check=True,
                       capture_output=True)
        package = glob.glob(packages + "/tmqkci_*_i386.deb")[0]
        depends = subprocess.run(["dpkg-deb", "-f", package, "Depends"], check=True, capture_output=True,
                                 text=True).stdout
        self.assertRegex(depends, r"^libc6 \(>= [0-9.]+\)\n$")
        root = self.home + "/root"
        subprocess.run(["dpkg-deb", "-x", package, root], check=True)
        self.assertEqual(self.run_program(root + "/usr/bin/tmqkci", "-e", "'hello' size")[:2], (0, "5\n"))
        self.assertEqual(self.run_program(root + "/usr/bin/tmqkci", "doctor")[0], 0)
        jar = root + "/usr/lib/tmqkci/lib/tmqkci.jar"
        module = self.run_program(JAVA64_HOME + "/bin/java", "--module-path", jar, "--describe-module",
                                  "com.kestrune.tmqkci", LD_LIBRARY_PATH=None)
        self.assertIn("com.kestrune.tmqkci", module[1])
