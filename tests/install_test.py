#!/usr/bin/env python3
"""Tests what is installed and packed: the tree after it was moved, a module built against it, the Debian package.

usage: tests/install_test.py BUILD_DIR [option of unittest or InstallTest.test_...]
"""
import contextlib
import ctypes
import gzip
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # no cache beside the sources
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from zemhost import SAMPLE, Server, Store, call  # noqa: E402

BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
ROOT = pathlib.Path(__file__).resolve().parent.parent
SERVICE = 12345  # uid and gid of a service
os.environ["ASAN_OPTIONS"] = "detect_leaks=0"  # needs /proc, which root lacks once it has entered a service's folder

# A module that needs only the installed headers. It reads a parameter and calls the store.
MODULE = r"""
#include "platform/velq_webapi.h"
#include "platform/velq_zem.h"
static void run(VELQ::APIRequest* req, VELQ::APIResponse* resp)
{
    _tag_velq_zem_ou_* pOu = VELQZEMOuAlloc();
    const int found = VELQZEMOuGet(req->GetParam("id", Json::Value()).asUInt(), pOu);
    VELQZEMOuFree(pOu);
    resp->SetSuccess(Json::Value(0 == found));
}
static VELQ::APIMethod rows[] = {{"Test", 1, "run", run}, {0, 0, 0, 0}};
extern "C" VELQ::APIMethod* GetAPITable() { return rows; }
"""


def output(*command, **options):
    """Runs a command, which must succeed, and returns what it prints."""
    done = subprocess.run([str(word) for word in command], timeout=200, encoding="utf-8", stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{command} ended with status {done.returncode}: {done.stdout}")
    return done.stdout


def dynamic(tree, tag):
    """Returns the values of a tag in the dynamic section of a tree's programs and libraries, by file name."""
    return {path.name: re.findall(rf"\({tag}\).*\[(.*)\]", output("readelf", "-d", path))
            for path in [*tree.glob("bin/*"), *tree.glob("lib/zemhost/*")]}


class InstallTest(unittest.TestCase):
    """Each test has an installed tree that was moved, and a store outside of it."""

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="zem-")))
        self.folder.chmod(0o755)  # for the service's user
        output("cmake", "--install", BUILD, "--prefix", self.folder / "first", "--strip")
        self.tree = (self.folder / "first").rename(self.folder / "moved here")
        (self.folder / "state").mkdir(mode=0o700)
        self.store = Store(self.tree / "bin", self.folder / "state")

    def serve(self, **options):
        self.server = Server(self.store, **options)
        self.addCleanup(self.server.stop)

    def call(self, token, *arguments):
        with contextlib.closing(self.server.connect()) as connection:
            return call(connection, token, *arguments)[1]

    def test_moved_tree_runs(self):
        self.assertRegex(self.store.run("--version"), r"^zemhost \d+\.\d+\.\d+( \([0-9a-f]+\))?\n$")
        self.store.fill()
        self.assertIn("12 groups, 30 servers", self.store.run("tree", "--as", "admin"))
        self.serve()
        for method, params in [("Tree get", {}), ("GPO link", {"id": 8, "target_add": [{"node_type": 3, "node_id": 1}]})]:
            self.assertTrue(self.call(self.store.token("admin"), method, params)["success"])
        with contextlib.closing(self.server.connect()) as connection:
            connection.request("GET", "/")
            self.assertIn(b"<!doctype html>", connection.getresponse().read(100).lower())
        libraries = ["libvelqplatform.so", "libvelqplatform.so.1", "webapi_zem_gpo.so", "webapi_zem_kx.so",
                     "webapi_zem_ou.so"]
        paths = {"zemhost": ["$ORIGIN:$ORIGIN/../lib/zemhost"], **{name: ["$ORIGIN"] for name in libraries}}
        self.assertEqual(dynamic(self.tree, "RUNPATH"), paths)
        self.assertFalse(any(dynamic(self.tree, "RPATH").values()))

    def test_installed_command_uses_the_store_of_the_service(self):
        (self.folder / "root/etc/default").mkdir(parents=True)
        program = self.tree.rename(self.folder / "root/usr") / "bin/zemhost"
        file = self.folder / "root/etc/default/zemhost"
        by_name = {"service": f"ZEM_STORE=sqlite:{self.folder}/service.db"}
        cases = [  # text of the file, name in the environment and in the option, the store that is made: None for none
            (None, None, None, "here/zem.db"),
            (by_name["service"], None, None, "service.db"),
            (by_name["service"], "variable", None, "variable.db"),
            (by_name["service"], "variable", "option", "option.db"),
            (f"# ZEM_STORE=other\n  ZEM_STORE='sqlite:{self.folder}/service.db' \r\nZEM_OPTIONS=\n", "", None, "service.db"),
            (f'ZEM_STORE=sqlite:no.db\nZEM_STORE="sqlite:{self.folder}/service.db"\n\n', None, None, "service.db"),
            ("", None, None, None),
            ("ZEM_OPTIONS=\n#ZEM_STORE=sqlite:no.db", None, None, None),
            ("ZEM_STORE=", None, None, None),
            (f"ZEM_STORE=sqlite:{self.folder}/$HOME.db", None, None, None),
            (f"ZEM_STORE=sqlite:{self.folder}/a\\ b.db", None, None, None),
            (f"ZEM_STORE=\"sqlite:{self.folder}/open.db", None, None, None),
        ]
        for text, variable, option, expected in cases:
            with self.subTest(text=text, variable=variable, option=option), tempfile.TemporaryDirectory(dir=self.folder) as here:
                file.unlink(missing_ok=True)
                if text is not None:
                    file.write_text(text)
                environment = {name: value for name, value in os.environ.items() if name != "ZEM_STORE"}
                if variable is not None:
                    environment["ZEM_STORE"] = variable and f"sqlite:{self.folder}/{variable}.db"
                command = [program, "apply", SAMPLE] + (["--store", f"sqlite:{self.folder}/{option}.db"] if option else [])
                done = subprocess.run(command, env=environment, cwd=here, timeout=60, capture_output=True, encoding="utf-8")
                made = [path for path in self.folder.rglob("*.db")]
                self.assertEqual(made, [pathlib.Path(str(self.folder / expected).replace(f"{self.folder}/here", here))]
                                 if expected else [])
                self.assertEqual(done.returncode, 0 if expected else 2)
                self.assertEqual(str(file) in done.stderr, expected in [None, "service.db"])
                for path in made:
                    path.unlink()

    def test_module_builds_against_the_tree(self):
        environment = {**os.environ, "PKG_CONFIG_PATH": str(self.tree / "share/pkgconfig")}
        flags = output("pkg-config", "--cflags", "--libs", "zemhost", env=environment)
        headers = sorted((self.tree / "include/zemhost").rglob("*.h"))
        self.assertEqual(len(headers), 6)
        for header in headers:
            output("sh", "-c", f'c++ -std=c++17 -Wall -Werror -fsyntax-only -include "$0" -x c++ /dev/null {flags}', header)
        (self.folder / "own.cpp").write_text(MODULE)
        output("sh", "-c", f"c++ -shared -fPIC -Wl,-z,defs -o own.so own.cpp {flags}", cwd=self.folder)
        self.store.fill()
        for group, answer in [(3, "true"), (77, "false")]:
            printed = self.store.run("call", "Test", "run", "--params", json.dumps({"id": group}), "--as", "admin",
                                     "--module", self.folder / "own.so")
            self.assertIn(f'"data":{answer}', printed)

    def test_modules_build_for_another_platform(self):
        library = self.folder / "libother.so"
        flags = output("pkg-config", "--cflags", "--libs", "jsoncpp").split()
        output("c++", "-std=c++20", "-shared", "-fPIC", "-Wl,-soname,libother.so.7", "-o", library, f"-I{ROOT}",
               ROOT / "tests/fake_platform.cpp", "-lgtest", *flags)
        sources, build = self.folder / "sources", self.folder / "build"
        cmake = (ROOT / "CMakeLists.txt").read_text()
        for name in {"platform", *re.findall(r"(\w+)/\w+\.(?:cpp|map)", cmake)}:
            shutil.copytree(ROOT / name, sources / name)
        shutil.copy(ROOT / "CMakeLists.txt", sources)
        output("cmake", "-S", sources, "-B", build, "-G", "Ninja", f"-DZEM_PLATFORM_LIBRARY={library}")
        output("cmake", "--build", build)
        library.rename(build / "libother.so.7")
        for module in build.glob("*.so"):
            self.assertIn("(NEEDED)             Shared library: [libother.so.7]", output("readelf", "-d", module))
            table = ctypes.CDLL(module).GetAPITable
            table.restype = ctypes.POINTER(ctypes.c_char_p)
            self.assertRegex(table()[0], b"^VELQ\\.ZEM\\.")
        self.assertGreater(len(list(build.glob("*.so"))), 1)

    @unittest.skipUnless(os.geteuid() == 0, "only root works on other users' stores")
    def test_root_and_service_share_a_store(self):
        service = {"user": SERVICE, "group": SERVICE, "extra_groups": []}
        os.chown(self.store.folder, SERVICE, SERVICE)
        relative = f"sqlite:{self.store.folder.name}/zem.db"  # is not looked up again in the folder that root enters
        subprocess.run([self.store.program, "apply", SAMPLE, "--store", relative], cwd=self.store.folder.parent,
                       check=True, timeout=60, stdout=subprocess.DEVNULL)
        for _ in range(2):  # the second server opens files that root left while no server ran
            self.serve(**service)
            token = self.store.token("admin")
            group = self.call(token, "KXGroup create", {"id": 0, "name": "Lab", "parent_id": 0})["data"]["ids"]
            self.store.run("link", "add", "group", str(group), "1")
            self.assertTrue(self.call(token, "KXGroup delete", {"node_id": group})["success"])
            files = {path.name: path.stat() for path in self.store.folder.glob("zem.db*")}
            self.assertEqual(len(files), 3)
            self.assertEqual({(info.st_uid, info.st_mode & 0o777) for info in files.values()}, {(SERVICE, 0o600)})
            self.server.stop()
            self.store.token("admin")

    def test_store_without_rights_is_named_and_one_that_can_be_read_is_read(self):
        self.store.fill()
        user = {"user": SERVICE, "group": SERVICE, "extra_groups": []} if os.geteuid() == 0 else {}
        for path in [self.store.folder, self.store.path] if user else []:
            os.chown(path, SERVICE, SERVICE)
        place = f"cannot open the store {self.store.path}: this account may not "
        for file, folder, status, said, written in [
                (0o000, 0o700, 1, place + "read zem.db\n", place), (0o600, 0o500, 1, place + "write its folder", place),
                (0o400, 0o700, 0, "12 groups, 30 servers", "the store can only be read: this account may not write")]:
            with self.subTest(file=oct(file), folder=oct(folder)):
                self.store.path.chmod(file)
                self.store.folder.chmod(folder)
                self.assertIn(said, self.store.run("tree", "--as", "admin", status=status, **user))
                self.assertIn(written, self.store.run("token", "admin", status=1, **user))
        self.store.path.chmod(0o600)
        self.store.path.write_bytes(bytes(5000))
        self.store.folder.chmod(0o500)
        self.assertIn("not a store", self.store.run("tree", "--as", "admin", status=1, **user))

    @unittest.skipUnless(os.geteuid() == 0, "only root works on other users' stores")
    def test_root_follows_no_link_of_the_service(self):
        def contents():
            return {path.name: (path.stat().st_mode, path.read_bytes()) for path in other.iterdir()}
        other = self.folder / "other"
        other.mkdir()
        (other / "file").write_text("text")
        Store(self.tree / "bin", other).fill()
        before = contents()
        self.folder.chmod(0o700)  # as that of the services that systemd gives an account to
        for name in ["zem.db", "zem.db-wal", "zem.db-shm", "zem.db-journal", "folder"]:
            for target in ["file", "zem.db", "new", "."]:
                with self.subTest(name=name, target=target), tempfile.TemporaryDirectory(dir=self.folder) as folder:
                    store = Store(self.tree / "bin", folder, f"sqlite:{folder}/folder/zem.db" if name == "folder" else None)
                    os.chown(folder, SERVICE, SERVICE)
                    if name != "folder":
                        store.fill()
                        store.path.with_name(name).unlink(missing_ok=True)
                    (store.folder / name).symlink_to(other / target)
                    for command in [("apply", SAMPLE), ("token", "admin")]:
                        subprocess.run([store.program, *command], cwd=folder, timeout=60, env=store.environment,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                    self.assertEqual(contents(), before)

    def test_package_depends_on_its_libraries_and_protects_its_environment_file(self):
        output("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", self.folder / "packed")
        package, = (self.folder / "packed").glob("*.deb")
        output("dpkg-deb", "--extract", package, self.folder / "unpacked")
        depends = set(re.findall(r"[^ ,]+(?= \(|,|\n)", output("dpkg-deb", "--field", package, "Depends")))
        libraries = dynamic(self.folder / "unpacked/usr", "NEEDED")
        for library in {name for names in libraries.values() for name in names} - set(libraries):
            owners = re.findall("^[^:]+", output("dpkg-query", "--search", f"*/{library}"), re.MULTILINE)
            self.assertTrue(depends & set(owners), f"{library} of {owners}")
        self.assertIn("/etc/default/zemhost\n", output("dpkg-deb", "--info", package, "conffiles"))
        self.assertIn('.B "\\-\\-allow\\-remote"', gzip.open(self.folder / "unpacked/usr/share/man/man1/zemhost.1.gz", "rt").read())
        completed = output("bash", "-c", 'source "$0"; COMP_WORDS=(zemhost link a); COMP_CWORD=2; _zemhost; echo ${COMPREPLY[@]}',
                           self.folder / "unpacked/usr/share/bash-completion/completions/zemhost")
        self.assertEqual(completed, "add\n")
        listed = output("dpkg-deb", "--contents", package)
        self.assertRegex(listed, r"(?m)^-rw------- root/root .* \./etc/default/zemhost$")


if __name__ == "__main__":
    unittest.main()
