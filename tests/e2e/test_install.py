# SPDX-License-Identifier: Apache-2.0
"""What `cmake --install` leaves behind, and what programs make of it: by pkg-config, by find_package, in C and C++.

The folder is moved once everything is installed, so that nothing may depend on where that was.
"""
import json
import os
import pathlib
import platform
import re
import shutil

import pytest

from builds import CALLER, HEADER, PROJECT, SCENARIO, VERSION, build, copy_tree, install, make_sdk, run
from lyn import AUTO_DONE, BUILD, ROOT, Demo

pytestmark = pytest.mark.skipif(BUILD.name != "release", reason="what is installed is what ships, no sanitizer build")

# One worker does them all, and builds with the SDK once.
with_sdk = pytest.mark.xdist_group("sdk")


def install_and_move(folder, tmp):
    return install(folder, tmp / "first").rename(tmp / "second")


def lib_dir(prefix):
    return next(prefix.glob("lib*"))


@pytest.fixture(scope="module")
def prefix(tmp_path_factory):
    return install_and_move(BUILD, tmp_path_factory.mktemp("installed"))


@pytest.fixture(scope="module")
def plain():
    """A build as packages are made: no preset, no GoogleTest, for /usr."""
    return build("plain", "-DCMAKE_INSTALL_PREFIX=/usr", "-DLYN_TESTS=ON",
                 "-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON")


@pytest.fixture(scope="module")
def sdk(tmp_path_factory):
    return make_sdk(tmp_path_factory.mktemp("board") / "sdk")


@pytest.fixture(scope="module")
def sdk_build(tmp_path_factory, sdk):
    """Of a tree that has no board of its own."""
    tmp = tmp_path_factory.mktemp("with_sdk")
    tree = copy_tree(tmp / "tree")
    shutil.rmtree(tree / "platform")
    return build("sdk", "-DLYN_PLATFORM=sdk", f"-DLYN_SDK_DIR={sdk}", tree=tree)


@pytest.fixture(scope="module")
def sdk_prefix(tmp_path_factory, sdk_build):
    return install_and_move(sdk_build, tmp_path_factory.mktemp("sdk_installed"))


def files(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir())


def pkg_config(prefix, *options):
    found = run("pkg-config", *options, "lyn", env={**os.environ, "PKG_CONFIG_PATH": str(lib_dir(prefix) / "pkgconfig")})
    return found.split()


def compile_caller(folder, prefix, suffix, *options):
    """Build the caller with what pkg-config says."""
    static = ["-static"] if "--static" in options else []
    source, program = folder / f"caller{suffix}", folder / "caller"
    source.write_text(CALLER, encoding="utf-8")
    compiler = {".c": "cc", ".cpp": "c++"}[suffix]
    run(compiler, *static, source, *pkg_config(prefix, "--cflags", "--libs", *options), "-o", program)
    return program


def check_runs(program, *library_dirs):
    env = {name: value for name, value in os.environ.items() if not name.startswith("LYN_SIM_")}
    scenario = program.parent / "scenario.toml"
    scenario.write_text(SCENARIO, encoding="utf-8")
    env["LYN_SIM_SCENARIO"] = str(scenario)
    env["LD_LIBRARY_PATH"] = ":".join(str(folder) for folder in library_dirs)
    assert "\nRSRP -101\n" in run(program, env=env)


def build_project(folder, prefix, libraries, language="C", options=()):
    folder = folder / "project"
    folder.mkdir()
    source = {"C": "caller.c", "CXX": "caller.cpp"}[language]
    (folder / source).write_text(CALLER, encoding="utf-8")
    (folder / "CMakeLists.txt").write_text(
        PROJECT.format(language=language, version=VERSION, libraries=" ".join(libraries), source=source), encoding="utf-8")
    run("cmake", "-S", folder, "-B", folder / "build", f"-DCMAKE_PREFIX_PATH={prefix}", *options)
    run("cmake", "--build", folder / "build")
    return [folder / "build" / library for library in libraries]


def dynamic(path, tag):
    """The values of one tag of the dynamic section."""
    return re.findall(rf"\({tag}\).*\[(.*)\]", run("readelf", "-dW", path))


def exported(path):
    """The functions and objects that a library exports, demangled and without the version."""
    lines = (line.split(maxsplit=2) for line in run("nm", "-DC", "--defined-only", path).splitlines())
    return {name.split("@@")[0] for _, kind, name in lines if kind != "A"}


def code(header):
    """A header without comments and preprocessor lines."""
    text = re.sub(r"(?s)/\*.*?\*/|//[^\n]*", "", header)
    return re.sub(r"(?m)^\s*#(?:.*\\\n)*.*$", "", text)


def without_optional(names):
    """All but the Python package, which is there where it was asked for, and the live picture, where its libraries are."""
    return [name for name in names if "dist-packages" not in name and "lyn_watch" not in name]


def watch_is_built():
    return (BUILD / "lyn_watch").exists()


def test_everything_is_installed_once_and_once_more(tmp_path):
    installed = install(BUILD, tmp_path / "prefix")
    first = files(installed)
    assert {"bin/lyn_demo", "include/ox_lyn.h", "lib/liblyn.a", "lib/liblyn.so", "lib/liblyn.so.0",
            f"lib/liblyn.so.{VERSION}", "lib/liblyn_sim.a", "lib/liblyn_sim.so", "lib/liblyn_sim.so.0",
            f"lib/liblyn_sim.so.{VERSION}", "lib/pkgconfig/lyn.pc", "lib/cmake/lyn/lyn-config.cmake",
            "lib/cmake/lyn/lyn-config-version.cmake", "lib/cmake/lyn/lyn-targets.cmake",
            "lib/cmake/lyn/lyn-targets-release.cmake", "share/man/man1/lyn_demo.1",
            "share/man/man3/ox_lyn.3", "share/man/man7/lyn_sim.7",
            *(f"share/lyn/scenarios/{path.name}" for path in (ROOT / "scenarios").iterdir())} == set(without_optional(first))
    install(BUILD, installed)
    assert files(installed) == first


def test_every_installed_file_is_in_one_package(prefix):
    """Packages have the folders of /usr, in which those of the libraries have a level more."""
    owners = {name: [] for name in files(prefix)}
    for listed in (ROOT / "debian").glob("*.install"):
        if listed.stem == "python3-lyn" and not any("dist-packages" in name for name in owners):
            continue
        if listed.stem == "lyn-watch" and not watch_is_built():
            continue
        for pattern in listed.read_text(encoding="utf-8").split():
            found = list(prefix.glob(pattern.replace("usr/lib/*/", "usr/lib/").removeprefix("usr/")))
            assert found, f"{listed.name}: no {pattern}"
            for path in found:
                for name in files(path) if path.is_dir() else [""]:
                    owners[str((path / name).relative_to(prefix))].append(listed.stem)
    assert {name: packages for name, packages in owners.items() if len(packages) != 1} == {}


def test_nothing_installed_names_the_tree_or_the_prefix(prefix):
    places = [str(ROOT).encode(), str(prefix.parent).encode()]
    assert [name for name in files(prefix) if any(place in (prefix / name).read_bytes() for place in places)] == []


def linked(prefix):
    """Installed programs and shared libraries, and the Python package's."""
    return [path for path in sorted(prefix.rglob("*")) if path.is_file() and not path.is_symlink()
            and path.suffix not in (".a", ".o") and path.read_bytes()[:4] == b"\x7fELF"]


def test_everything_installed_has_the_guards_of_the_compiler(prefix):
    """The start files of the C library do not say that they have branch protection: it is looked for by itself."""
    names = [path.name for path in linked(prefix)]
    assert {"lyn_demo", f"liblyn.so.{VERSION}", f"liblyn_sim.so.{VERSION}"} <= set(names)
    for path in linked(prefix):
        copies_nothing = ["--nofortify"] if "cpython" in path.name else []
        run("hardening-check", "--nocfprotection", *copies_nothing, path)
        assert re.search(r"GNU_STACK .* RW ", run("readelf", "-lW", path)), path


@pytest.mark.skipif(platform.machine() != "x86_64", reason="the instruction is this processor's")
def test_every_function_that_is_installed_begins_with_the_mark_of_a_call(prefix):
    for path in linked(prefix):
        code = run("objdump", "-d", "--no-show-raw-insn", path)
        begins = dict(re.findall(r"(?m)^([0-9a-f]+) <.*>:\n +[0-9a-f]+:\t(\w+)", code))
        called = re.findall(r"(?m)^([0-9a-f]+) T ", run("nm", "-D", "--defined-only", path))
        called = called or re.findall(r"(?m)^([0-9a-f]+) T main$", run("nm", path))
        assert {begins[address] for address in called} == {"endbr64"}, path


def test_installed_demo_uses_the_shared_library_and_runs_wherever_it_lies(tmp_path, prefix):
    assert "liblyn.so.0" in dynamic(prefix / "bin/lyn_demo", "NEEDED")
    result = Demo(tmp_path, prefix / "bin/lyn_demo").auto(["1", "7 1", "2"])
    assert result.console.endswith(AUTO_DONE) and "[Registration Status] - 6" in result.console
    assert result.status == 0


def test_installed_live_picture_uses_the_shared_library_and_runs_wherever_it_lies(prefix):
    if not watch_is_built():
        pytest.skip("lyn_watch is not built: its libraries are not installed for this processor")
    assert {"share/man/man1/lyn_watch.1", "share/lyn/lyn_watch.schema.json",
            "lib/systemd/system/lyn_watch.service"} < set(files(prefix))
    assert "liblyn.so.0" in dynamic(prefix / "bin/lyn_watch", "NEEDED")
    record = json.loads(run(prefix / "bin/lyn_watch", "--json", "--once"))
    assert record["registration"] == "lte_nr5g"


@pytest.mark.parametrize("suffix", [".c", ".cpp"])
@pytest.mark.parametrize("options", [[], ["--static"]], ids=["shared", "static"])
def test_pkg_config_brings_all_that_a_program_needs(tmp_path, prefix, suffix, options):
    program = compile_caller(tmp_path, prefix, suffix, *options)
    assert ("liblyn.so.0" in dynamic(program, "NEEDED")) == (not options)
    check_runs(program, *([] if options else [lib_dir(prefix)]))


@pytest.mark.parametrize("language", ["C", "CXX"])
def test_find_package_brings_all_that_a_program_needs(tmp_path, prefix, language):
    shared, static = build_project(tmp_path, prefix, ["lyn", "lyn_static"], language)
    assert "liblyn.so.0" in dynamic(shared, "NEEDED")
    assert not [name for name in dynamic(static, "NEEDED") if "lyn" in name]
    check_runs(shared)
    check_runs(static)


def test_version_is_that_of_the_public_header_everywhere(prefix):
    assert pkg_config(prefix, "--modversion") == [VERSION]
    for library in ("liblyn.so", "liblyn_sim.so"):
        path = lib_dir(prefix) / library
        assert dynamic(path, "SONAME") == [f"{library}.{VERSION.split('.', maxsplit=1)[0]}"]
        assert path.resolve().name == f"{library}.{VERSION}"


def test_module_exports_the_operations_of_the_public_header_and_nothing_else(prefix):
    operations = set(re.findall(r"^int32_t (\w+)\(", HEADER, re.M))
    assert len(operations) == 9
    assert exported(lib_dir(prefix) / "liblyn.so") == operations


def test_board_exports_what_its_headers_declare_and_nothing_else(prefix):
    """A constructor, a destructor and what the compiler makes of a class belong to the class."""
    text = "".join(code(path.read_text(encoding="utf-8")) for path in (ROOT / "platform/inc").glob("*.h"))
    declared = set(re.findall(r"^\s*(?:\w[\w:]*[ *]+)*(~?\w+)\((?!\*)[^;]*\)(?: const)?;", text, re.M)) - {"static_assert"}
    classes = set(re.findall(r"^class (\w+)", text, re.M))
    names = {re.split(r"[(\[]", name)[0] for name in exported(lib_dir(prefix) / "liblyn_sim.so")}
    made = {f"{what} for {name}" for what in ("vtable", "typeinfo", "typeinfo name") for name in classes}
    assert {re.sub(r"\w+::", "", name) for name in names} == declared | made


def test_module_needs_the_board_it_was_built_with_and_holds_nothing_of_it(prefix):
    assert "liblyn_sim.so.0" in dynamic(lib_dir(prefix) / "liblyn.so", "NEEDED")
    for library in ("liblyn.so", "liblyn.a"):
        assert "yrp_client_send_msg_sync" not in run("nm", *(["-D"] if library.endswith("so") else []),
                                                     "--defined-only", lib_dir(prefix) / library)


def test_installed_for_usr_all_lies_in_the_multiarch_folder_without_run_path(tmp_path, plain):
    run("cmake", "--install", plain, env={**os.environ, "DESTDIR": str(tmp_path)})
    usr = tmp_path / "usr"
    libraries = usr / "lib" / run("cc", "-print-multiarch").strip()
    assert [path.name for path in tmp_path.iterdir()] == ["usr"]
    assert {path.parent for path in usr.rglob("liblyn*")} == {libraries}
    assert {path.parent for path in usr.rglob("lyn.pc")} == {libraries / "pkgconfig"}
    for path in (usr / "bin/lyn_demo", libraries / "liblyn.so", libraries / "liblyn_sim.so"):
        assert dynamic(path, "RUNPATH") == dynamic(path, "RPATH") == []


def test_without_shared_libraries_the_static_ones_are_what_programs_get(tmp_path):
    static = build("static", "-DLYN_SHARED=OFF")
    prefix = install_and_move(static, tmp_path)
    assert [name for name in files(prefix) if ".so" in name] == []
    check_runs(compile_caller(tmp_path, prefix, ".c"))
    program, = build_project(tmp_path, prefix, ["lyn"])
    check_runs(program)
    assert Demo(tmp_path, prefix / "bin/lyn_demo").auto(["1", "2"]).status == 0


@with_sdk
def test_build_for_the_board_installs_nothing_of_the_simulated_one(sdk_prefix):
    assert [name for name in files(sdk_prefix) if "sim" in pathlib.PurePath(name).name] == []
    # Manual pages say what holds where the board is simulated, and that it has a page.
    assert [name for name in files(sdk_prefix) if b"lyn_sim" in (sdk_prefix / name).read_bytes()
            and not name.startswith("share/man/")] == []
    assert "libdiag.so.1" in dynamic(lib_dir(sdk_prefix) / "liblyn.so", "NEEDED")


def of_the_simulated_board(program):
    """Symbols, defined or not; the board is the only one to read TOML and to write JSON."""
    return [line for line in run("nm", "-C", program).splitlines() if re.search(r"\bsim_|\btoml::|\bnlohmann::", line)]


@with_sdk
def test_build_for_the_board_holds_and_needs_nothing_of_the_simulated_one(sdk_build):
    assert of_the_simulated_board(BUILD / "lyn_demo")
    for program in ("lyn_demo", "demo/lyn_demo", "src/liblyn.so", "src/liblyn.a"):
        assert of_the_simulated_board(sdk_build / program) == [], program


@with_sdk
def test_build_for_the_board_runs_with_the_libraries_of_the_board(tmp_path, sdk_prefix, sdk):
    check_runs(compile_caller(tmp_path, sdk_prefix, ".c"), lib_dir(sdk_prefix), sdk / "lib")
    shared, static = build_project(tmp_path, sdk_prefix, ["lyn", "lyn_static"])
    check_runs(shared, sdk / "lib")
    check_runs(static, sdk / "lib")
    result = Demo(tmp_path, sdk_prefix / "bin/lyn_demo").auto(["1", "7 1", "2"],
                                                             env={"LD_LIBRARY_PATH": str(sdk / "lib")})
    assert result.console.endswith(AUTO_DONE) and result.status == 0
    assert "[Registration Status] - 6" in result.console


@with_sdk
def test_sdk_may_lie_elsewhere_for_the_programs_that_are_built_against_it(tmp_path, sdk_prefix):
    moved = make_sdk(tmp_path / "moved")
    shared, static = build_project(tmp_path, sdk_prefix, ["lyn", "lyn_static"], options=[f"-DLYN_SDK_DIR={moved}"])
    check_runs(shared, moved / "lib")
    check_runs(static, moved / "lib")
    assert f"-L{moved}/lib" in pkg_config(sdk_prefix, f"--define-variable=sdkdir={moved}", "--static", "--libs")
