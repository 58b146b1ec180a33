# SPDX-License-Identifier: Apache-2.0
"""The Debian packages and what a release is made of: that what describes them agrees with the tree, which trees are no
release, and, with --long, what tools/package makes and how that fares on a clean system.
"""
import hashlib
import re
import shutil
import subprocess
import tarfile

import pytest

from builds import CALLER, PROJECT, SCENARIO, VERSION, run
from lyn import AUTO_DONE, BUILD, ROOT
from roots import CleanRoot

pytestmark = pytest.mark.skipif(BUILD.name != "release", reason="packages are built in one way only")

# A tree of version 0.2.0, as much of it as is looked at.
SYMBOLS = "debian/liblyn0.symbols"
TREE = {
    "inc/ox_lyn.h": """
#define OX_LYN_VERSION_MAJOR 0
#define OX_LYN_VERSION_MINOR 2
#define OX_LYN_VERSION_PATCH 0
int32_t ox_lyn_init(void);
int32_t ox_lyn_deinit(
    void);
""",
    "CHANGELOG.md": "# Changes\n\n## 0.2.0 (2026-12-01)\n\n- More.\n\n## 0.1.0 (2026-11-01)\n",
    "debian/changelog": """lyn (0.2.0) unstable; urgency=medium

  * More.

 -- Somebody <somebody@example.org>  Tue, 01 Dec 2026 10:00:00 +0000
""",
    SYMBOLS: """liblyn.so.0 liblyn0 #MINVER#
* Build-Depends-Package: liblyn-dev
 LYN_0@LYN_0 0.1.0
 ox_lyn_deinit@LYN_0 0.2.0
 ox_lyn_init@LYN_0 0.1.0
""",
}

# What is changed in a file, and what the tool has to say then.
WRONG = {
    "version_of_the_header_raised": ("inc/ox_lyn.h", "MINOR 2", "MINOR 3",
                                     "CHANGELOG.md: the topmost version is 0.2.0, that of inc/ox_lyn.h 0.3.0"),
    "version_of_the_package_raised": ("debian/changelog", "(0.2.0)", "(0.2.1)",
                                      "debian/changelog: the topmost version is 0.2.1, that of inc/ox_lyn.h 0.2.0"),
    "package_not_released": ("debian/changelog", "unstable", "UNRELEASED",
                             "debian/changelog: 0.2.0 is of unreleased, in CHANGELOG.md of 2026-12-01"),
    "days_differ": ("CHANGELOG.md", "2026-12-01", "2026-12-02",
                    "debian/changelog: 0.2.0 is of 2026-12-01, in CHANGELOG.md of 2026-12-02"),
    "section_without_date": ("CHANGELOG.md", "0.2.0 (2026-12-01)", "0.2.0",
                             "CHANGELOG.md: the topmost version is 0.1.0, that of inc/ox_lyn.h 0.2.0"),
    "no_section": ("CHANGELOG.md", "## ", "### ", "CHANGELOG.md: the topmost version is no section, that of inc/ox_lyn.h"),
    "operation_added": ("inc/ox_lyn.h", "int32_t ox_lyn_init", "int32_t ox_lyn_more(void);\nint32_t ox_lyn_init",
                        f"{SYMBOLS}: no ox_lyn_more"),
    "operation_renamed": (SYMBOLS, " ox_lyn_deinit@", " ox_lyn_end@", f"{SYMBOLS}: ox_lyn_end is no operation"),
    "operation_of_a_later_version": (SYMBOLS, "ox_lyn_init@LYN_0 0.1.0", "ox_lyn_init@LYN_0 0.10.0",
                                     f"{SYMBOLS}: ox_lyn_init since 0.10.0, which is after 0.2.0"),
    "soname_raised": ("inc/ox_lyn.h", "MAJOR 0", "MAJOR 1", "debian/liblyn1.symbols: is missing"),
}


@pytest.fixture
def tree(tmp_path):
    for name, text in TREE.items():
        (tmp_path / name).parent.mkdir(exist_ok=True)
        (tmp_path / name).write_text(text, encoding="utf-8")
    (tmp_path / "tools").mkdir()
    shutil.copy(ROOT / "tools/check-packages", tmp_path / "tools")
    return tmp_path


def change(tree, name, before, after):
    text = (tree / name).read_text(encoding="utf-8")
    assert before in text
    (tree / name).write_text(text.replace(before, after), encoding="utf-8")


def check(tree, *arguments):
    done = subprocess.run([str(tree / "tools/check-packages"), *arguments], stdout=subprocess.PIPE, text=True, check=False)
    return done.returncode, done.stdout


def test_packages_agree_with_the_header(tree):
    assert check(tree) == check(tree, "--released") == (0, "all is of version 0.2.0\n")


@pytest.mark.parametrize("case", WRONG)
def test_what_differs_from_the_header_is_named(tree, case):
    *changed, named = WRONG[case]
    change(tree, *changed)
    status, output = check(tree)
    assert status == 1 and named in output


def test_version_without_a_date_is_whole_but_not_released(tree):
    change(tree, "debian/changelog", "unstable", "UNRELEASED")
    change(tree, "CHANGELOG.md", "2026-12-01", "unreleased")
    assert check(tree) == (0, "all is of version 0.2.0\n")
    assert check(tree, "--released") == (1, "CHANGELOG.md: 0.2.0 has no date yet, nor has debian/changelog\n")


# Tools that a release uses, in place of those that take minutes.
STUBS = {"tools/test": '#!/bin/sh\necho "$0 $*" >>build/ran\n',
         "tools/package": '#!/bin/sh\necho "$0" >"$1/lyn_0.2.0_amd64.deb"\n: >"$1/build.log"\n'}


def commit(tree):
    run("git", "add", "--all", cwd=tree)
    run("git", "-c", "user.name=Somebody", "-c", "user.email=somebody@example.org", "commit", "--quiet", "-m", "Try", cwd=tree)


@pytest.fixture
def release_tree(tree):
    for name in ("tools/release", "tools/common.sh", ".gitignore"):
        shutil.copy(ROOT / name, tree / name)
    for name, text in STUBS.items():
        (tree / name).write_text(text, encoding="utf-8")
        (tree / name).chmod(0o755)
    run("git", "init", "--quiet", tree)
    commit(tree)
    (tree / "build").mkdir()
    return tree


def release(tree, *options):
    done = subprocess.run([str(tree / "tools/release"), *options], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, check=False)
    return done.returncode, done.stdout, done.stderr


def published(tree, output):
    """The files that the tool names, each with the sum that it has."""
    rows = [line.split() for line in output.splitlines() if line.startswith("  ")]
    for total, size, name in rows:
        data = (tree / "build/publish" / name).read_bytes()
        assert (total, int(size)) == (hashlib.sha256(data).hexdigest(), len(data))
    return [name for _, _, name in rows]


def test_dry_run_tests_and_packages_the_last_commit_and_tags_nothing(release_tree):
    status, output, _ = release(release_tree, "--dry-run")
    assert status == 0
    assert published(release_tree, output) == ["lyn-0.2.0.tar.gz", "lyn_0.2.0_amd64.deb"]
    head = run("git", "-C", release_tree, "rev-parse", "HEAD").strip()
    assert output.splitlines()[-1] == f"would tag: git tag -a v0.2.0 -m 'LYN Device Manager 0.2.0' {head}"
    assert run("git", "-C", release_tree, "tag") == run("git", "-C", release_tree, "status", "--porcelain") == ""
    assert (release_tree / "build/ran").read_text(encoding="utf-8") == "tools/test --long\n"
    with tarfile.open(release_tree / "build/publish/lyn-0.2.0.tar.gz") as tar:
        assert {f"lyn-0.2.0/{name}" for name in [*TREE, *STUBS]} < set(tar.getnames())
    # The packages are those of the tarball.
    made_by = (release_tree / "build/publish/lyn_0.2.0_amd64.deb").read_text(encoding="utf-8")
    assert made_by.endswith("/lyn-0.2.0/tools/package\n") and str(release_tree) not in made_by


def test_dry_run_leaves_out_what_takes_minutes(release_tree):
    status, output, _ = release(release_tree, "--dry-run", "--skip-tests", "--skip-packages")
    assert status == 0 and published(release_tree, output) == ["lyn-0.2.0.tar.gz"]
    assert not (release_tree / "build/ran").exists()


def test_release_is_not_published_by_the_tool(release_tree):
    status, output, errors = release(release_tree)
    assert (status, output) == (1, "")
    assert errors == ("release: publishing and tagging are done by hand, see CONTRIBUTING.md; --dry-run makes what is "
                      "published\n")


def leave_a_file(tree):
    (tree / "notes.txt").write_text("", encoding="utf-8")


def raise_the_version(tree):
    change(tree, "inc/ox_lyn.h", "PATCH 0", "PATCH 1")
    commit(tree)


def take_the_dates_back(tree):
    change(tree, "debian/changelog", "unstable", "UNRELEASED")
    change(tree, "CHANGELOG.md", "2026-12-01", "unreleased")
    commit(tree)


def tag_it(tree):
    run("git", "-C", tree, "tag", "v0.2.0")


def break_a_test(tree):
    (tree / "tools/test").write_text("#!/bin/sh\nexit 1\n", encoding="utf-8")
    commit(tree)


REFUSED = {
    "tree_that_is_not_clean": (leave_a_file, "release: the tree is not clean: notes.txt\n"),
    "versions_that_differ": (raise_the_version, "debian/changelog: the topmost version is 0.2.0, that of inc/ox_lyn.h 0.2.1"),
    "version_without_a_date": (take_the_dates_back, "0.2.0 has no date yet"),
    "version_that_is_tagged": (tag_it, "release: v0.2.0 exists already"),
    "tests_that_fail": (break_a_test, "release: the tests fail"),
}


@pytest.mark.parametrize("case", REFUSED)
def test_release_is_refused_and_leaves_nothing(release_tree, case):
    spoil, named = REFUSED[case]
    spoil(release_tree)
    status, output, errors = release(release_tree, "--dry-run")
    assert (status, output) == (1, "") and named in errors
    assert not (release_tree / "build/publish").exists()


def test_readme_names_the_packages_that_are_made():
    made = re.findall(r"(?m)^Package: (\S+)$", (ROOT / "debian/control").read_text(encoding="utf-8"))
    readme = (ROOT / "README.md").read_text(encoding="utf-8")
    assert sorted(re.search(r"apt purge ([\w -]*\w)", readme)[1].split()) == sorted(made)
    assert sorted(re.findall(r"(?m)^\| `((?:lib|python3-)?lyn[\w-]*)` \|", readme)) == sorted(made)


# One worker does them all, and builds the packages once.
with_packages = pytest.mark.xdist_group("packages")


@pytest.fixture(scope="module")
def packages(tmp_path_factory):
    """The packages, built of a copy of the tree, which stays as it is. tools/package fails where lintian has an error or a
    warning.
    """
    folder = tmp_path_factory.mktemp("packages")
    tree = shutil.copytree(ROOT, folder / "tree", ignore=shutil.ignore_patterns("build", ".*", "__pycache__"))
    before = sorted(tree.rglob("*"))
    run(tree / "tools/package", folder)
    assert sorted(tree.rglob("*")) == before
    return {path.name.split("_")[0]: path for path in folder.glob("*.deb")}


def contents(package):
    """Its files but for those of /usr/share/doc, and the links among them."""
    lines = run("dpkg-deb", "-c", package).splitlines()
    names = (line.split(maxsplit=5)[5] for line in lines if not line.startswith("d"))
    return {name.removeprefix("./") for name in names if "/usr/share/doc/" not in name}


@with_packages
@pytest.mark.long
def test_packages_hold_what_their_names_say(packages):
    libraries = f"usr/lib/{run('cc', '-print-multiarch').strip()}"
    held = {name: contents(path) for name, path in packages.items()}
    assert held["liblyn0"] - {"usr/share/lintian/overrides/liblyn0"} == {
        f"{libraries}/liblyn.so.0 -> liblyn.so.{VERSION}", f"{libraries}/liblyn.so.{VERSION}"}
    assert {f"{libraries}/liblyn_sim.so.0 -> liblyn_sim.so.{VERSION}", f"{libraries}/liblyn_sim.so.{VERSION}",
            "usr/share/lyn/scenarios/motorway_drive.toml", "usr/share/man/man7/lyn_sim.7.gz"} < held["lyn-sim"]
    assert {"usr/bin/lyn_demo", "usr/share/man/man1/lyn_demo.1.gz"} < held["lyn-demo"]
    assert {"usr/bin/lyn_watch", "usr/share/man/man1/lyn_watch.1.gz"} < held["lyn-watch"]
    assert any(name.endswith("lib/systemd/system/lyn_watch.service") for name in held["lyn-watch"])
    assert {"usr/include/ox_lyn.h", "usr/share/man/man3/ox_lyn.3.gz", f"{libraries}/liblyn.a", f"{libraries}/liblyn_sim.a",
            f"{libraries}/liblyn.so -> liblyn.so.0", f"{libraries}/liblyn_sim.so -> liblyn_sim.so.0",
            f"{libraries}/pkgconfig/lyn.pc", f"{libraries}/cmake/lyn/lyn-config.cmake"} < held["liblyn-dev"]


@with_packages
@pytest.mark.long
def test_each_package_brings_the_next(packages):
    needed = {name: run("dpkg-deb", "-f", path, "Depends") for name, path in packages.items()}
    assert "liblyn0 (>= " in needed["python3-lyn"] and "python3-cffi-backend" in needed["python3-lyn"]
    assert "liblyn0 (>= " in needed["lyn-demo"] and "liblyn0 (>= " in needed["lyn-watch"]
    assert f"lyn-sim (>= {VERSION})" in needed["liblyn0"]
    assert f"liblyn0 (= {VERSION}), lyn-sim (= {VERSION})" in needed["liblyn-dev"]


def install_and_use(root, packages):
    """What a user does on the clean system; prints what the programs print. What the packages need comes from Debian."""
    # Whoever is root only in there has no second user for downloads.
    apt_get = "apt-get -q -y -o APT::Sandbox::User=root"
    script = ["set -e", f"{apt_get} update >apt.log", f"{apt_get} install ./*.deb >apt.log"]
    for suffix, compiler in ((".c", "cc"), (".cpp", "c++")):
        (root.work / f"caller{suffix}").write_text(CALLER, encoding="utf-8")
        script += [f"{compiler} caller{suffix} $(pkg-config --cflags --libs lyn) -o caller && ./caller",
                   f"{compiler} -static caller{suffix} $(pkg-config --static --cflags --libs lyn) -o caller && ./caller"]
    (root.work / "CMakeLists.txt").write_text(
        PROJECT.format(language="C", version=VERSION, libraries="lyn lyn_static", source="caller.c"), encoding="utf-8")
    script += ["cmake -S . -B build >cmake.log && cmake --build build >cmake.log", "build/lyn", "build/lyn_static",
               """python3 -c 'import lyn
with lyn.open() as modem: print("\\nRSRP", modem.get(lyn.Metric.LTE_SERV_RSRP))'""",
               "lyn_watch --json --once", "lyn_demo", "LYN_SIM_SCENARIO=/usr/share/lyn/scenarios/motorway_drive.toml lyn_demo",
               f"{apt_get} purge --autoremove {' '.join(packages)} >apt.log"]
    for package in packages.values():
        shutil.copy(package, root.work)
    (root.work / "scenario.toml").write_text(SCENARIO, encoding="utf-8")
    auto = root.folder / "data/data_oxmap/lyn_auto_test.cfg"
    auto.parent.mkdir(parents=True)
    auto.write_text("1\n7 10\n2\n", encoding="utf-8")
    before = root.files()
    printed = run(*root.command("sh", "-c", "\n".join(script), env={"LYN_SIM_SCENARIO": "/work/scenario.toml"}))
    return printed, before, root.files()


@with_packages
@pytest.mark.long
def test_on_a_clean_system_programs_are_built_and_run_and_nothing_stays_behind(tmp_path, packages):
    printed, before, after = install_and_use(CleanRoot(tmp_path), packages)
    assert printed.count("\nRSRP -101\n") == 7 and '"rsrp":-101' in printed
    assert "[LTE Serving Cell RSRP] - -101\n" in printed and printed.count(AUTO_DONE) == 2
    assert (after - before, before - after) == (set(), set())


@pytest.mark.long
def test_packages_of_a_release_are_made_of_what_is_committed(tmp_path):
    """The last commit, dated as a release is."""
    tree = tmp_path / "tree"
    run("git", "clone", "--quiet", ROOT, tree)
    for name, pattern, dated in (("CHANGELOG.md", r"\((?:unreleased|\d+-\d+-\d+)\)$", "(2026-12-01)"),
                                 ("debian/changelog", r"(?s)\A(lyn \(\S+\)) \w+;(.*?>  )[^\n]*",
                                  r"\1 unstable;\2Tue, 01 Dec 2026 10:00:00 +0000")):
        text = (tree / name).read_text(encoding="utf-8")
        (tree / name).write_text(re.sub(pattern, dated, text, count=1, flags=re.M), encoding="utf-8")
    commit(tree)
    status, output, errors = release(tree, "--dry-run", "--skip-tests")
    assert status == 0, errors
    names = published(tree, output)
    assert f"lyn-{VERSION}.tar.gz" in names and len([name for name in names if name.endswith(".deb")]) >= 5
