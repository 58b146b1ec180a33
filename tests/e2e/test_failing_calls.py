# SPDX-License-Identifier: Apache-2.0
"""What the clients do when the operating system or a library refuses them something: calls of theirs are made to fail by
a library that is preloaded (failing_calls.c)."""
import contextlib
import errno
import pathlib
import socket
import subprocess
import termios
import time

import pytest

from lyn import BUILD, EMULATOR, PROMPT

pytestmark = [pytest.mark.skipif(BUILD.name in ("asan", "tsan"), reason="a sanitizer's runtime comes first, or not at all"),
              pytest.mark.skipif(bool(EMULATOR), reason="the library is made for this machine's processor")]

HERE = pathlib.Path(__file__).resolve().parent
QUIET = "[board]\nnoise_db = 0\n"


@pytest.fixture(scope="session", name="library")
def make_library(tmp_path_factory):
    made = tmp_path_factory.mktemp("failing") / "failing_calls.so"
    subprocess.run(["cc", "-shared", "-fPIC", "-O1", "-o", made, HERE / "failing_calls.c"], check=True)
    return made


@pytest.fixture(name="failing")
def make_environment(library, tmp_path):
    """The environment in which calls fail: name="first count error"; with `since`, from when that file is there; with
    `only`, in the process of that name."""
    def environment(since=None, only=None, **calls):
        wanted = {"SINCE": since, "ONLY": only, **calls}
        return {"LD_PRELOAD": str(library), **{f"FAIL_{name}": str(how) for name, how in wanted.items() if how}}
    return environment


def once(error, first=1):
    return f"{first} 1 {int(error)}"


# Records and HTTP

@pytest.mark.parametrize("options, first", [(["--json"], 1), (["--json"], 2), (["--json", "--serve", "0"], 2),
                                            (["--json", "--serve", "0"], 3)], ids=["signals", "source", "server", "both"])
def test_without_a_thread_there_is_no_picture(watch, failing, options, first):
    result = watch.run(*options, env=failing(pthread_create=once(errno.EAGAIN, first)))
    assert result.status == 1 and result.stderr.endswith("lyn_watch: no thread to be had\n") and not result.console


def test_a_machine_without_a_name_has_a_board_without_one(watch, failing):
    result = watch.run("--json", "--once", env=failing(gethostname="1 0 36"))
    assert result.status == 0 and result.records[0]["board"] == ""


@pytest.mark.parametrize("error", [errno.EINTR, errno.EAGAIN])
def test_a_write_that_is_interrupted_is_made_again(watch, failing, error):
    result = watch.run("--json", "--once", scenario=QUIET, env=failing(write=once(error)))
    assert result.status == 0 and result.records[0]["up"]


def test_a_disk_that_fails_is_told(watch, failing):
    result = watch.run("--json", "--once", scenario=QUIET, env=failing(write="1 0 5"))
    assert result.status == 1 and result.stderr.endswith("lyn_watch: standard output: Input/output error\n")


@pytest.mark.parametrize("call, error, text", [("socket", errno.EMFILE, "Too many open files"),
                                               ("listen", errno.EADDRINUSE, "Address already in use")])
def test_an_address_that_cannot_be_had_is_told(watch, failing, call, error, text):
    result = watch.run("--serve", "127.0.0.1:0", env=failing(**{call: f"1 0 {int(error)}"}))
    assert result.status == 1
    assert result.stderr == f"lyn_watch: cannot serve on 127.0.0.1, port 0: {text}\n"


@pytest.fixture(name="serving")
def serve(watch, failing, tmp_path):
    """A run that serves, in which calls fail from `now` on."""
    sessions = []

    def serving(**calls):
        session = watch.session("--serve", "0", scenario=QUIET, env=failing(since=tmp_path / "since", **calls))
        sessions.append(session)
        session.wait_metrics(lambda found: found["lyn_up"] == "1")
        (tmp_path / "since").touch()
        return session
    yield serving
    for session in sessions:
        assert session.terminate() == 0
        session.kill()


def test_a_client_for_whom_there_is_no_thread_is_told_to_come_again(serving):
    session = serving(pthread_create="1 1 11")
    refused = session.get("/metrics")
    assert refused.status == 503 and refused.headers["Connection"] == "close"
    assert session.get("/metrics").status == 200


@pytest.mark.parametrize("error", [errno.ECONNABORTED, errno.EAGAIN, errno.EMFILE, errno.ENOMEM])
def test_a_client_that_cannot_be_taken_yet_is_taken_later(serving, error):
    session = serving(accept4=f"1 3 {int(error)}")
    assert session.get("/metrics").status == 200


def test_waiting_for_a_client_is_gone_on_with_where_it_is_interrupted(serving):
    session = serving(poll=f"1 5 {int(errno.EINTR)}")
    assert session.get("/metrics").status == 200


def test_a_client_that_takes_no_answer_is_let_go(serving):
    session = serving(poll_out=once(errno.ENOMEM))
    with socket.create_connection(session.address, timeout=session.timeout) as client:
        client.sendall(b"GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n")
        assert client.recv(65536) == b""
    assert session.get("/metrics").status == 200


def test_those_who_are_refused_have_some_time_to_read_it_and_no_more_than_a_few_at_once(serving):
    session = serving(pthread_create="1 0 11")
    clients = [socket.create_connection(session.address, timeout=session.timeout) for _ in range(20)]
    for client in clients:
        assert client.recv(65536).startswith(b"HTTP/1.1 503 ")
    clients[18].sendall(b"GET / HTTP/1.1\r\n\r\n")  # is read, and nothing comes of it
    clients[19].close()
    deadline = time.monotonic() + session.timeout
    with pytest.raises(OSError):  # the first made room for those that came later, the others after a while
        while True:
            assert time.monotonic() < deadline
            clients[0].sendall(b"GET / HTTP/1.1\r\n\r\n")
            time.sleep(0.01)
    time.sleep(2)
    with socket.create_connection(session.address, timeout=session.timeout) as client:
        assert client.recv(65536).startswith(b"HTTP/1.1 503 ")
    for client in clients:
        client.close()


def test_a_client_that_is_gone_while_it_is_waited_for_is_let_go(serving):
    session = serving(poll=f"2 2 {int(errno.ENOMEM)}", recv=f"1 1 {int(errno.ECONNRESET)}")
    for _ in range(3):
        with socket.create_connection(session.address, timeout=session.timeout) as client:
            client.sendall(b"GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n")
    for _ in range(4):  # a failure that none of the three has met is met by one of these
        with contextlib.suppress(ConnectionError):
            if session.get("/health").status == 200:
                return
    pytest.fail("nobody is served any more")


# The terminal

@pytest.mark.parametrize("call, error, text", [
    ("mmap", errno.ENOMEM, "Cannot allocate memory"), ("signalfd", errno.EMFILE, "Too many open files"),
    ("pipe2", errno.EMFILE, "Too many open files"), ("fork", errno.EAGAIN, "Resource temporarily unavailable")])
def test_a_terminal_that_cannot_be_borrowed_is_left_as_it_is(watch, failing, call, error, text):
    with watch.screen(scenario=QUIET, env=failing(**{call: f"1 0 {int(error)}"})) as screen:
        screen.wait_for(f"lyn_watch: the terminal cannot be borrowed: {text}")
        assert screen.wait() == 1
        assert termios.tcgetattr(screen.slave) == screen.found


def test_a_terminal_that_cannot_be_drawn_on_is_given_back(watch, failing):
    with watch.screen(scenario=QUIET, env=failing(fdopen=once(errno.ENOMEM))) as screen:
        screen.wait_for("lyn_watch: the terminal cannot be drawn on")
        assert screen.wait() == 1
        assert screen.settings() == screen.found and b"\x1b[?" not in screen.raw


@pytest.mark.parametrize("error", [errno.EINTR, errno.EAGAIN])
def test_keys_are_read_again_where_reading_was_interrupted(watch, failing, tmp_path, error):
    env = failing(since=tmp_path / "since", read=f"1 2 {int(error)}")
    with watch.screen(scenario=QUIET, env=env) as screen:
        screen.wait_for("modem up")
        (tmp_path / "since").touch()
        screen.press("q")
        assert screen.wait() == 0
        assert screen.leftovers() == []


def test_a_signal_that_is_not_there_changes_nothing(watch, failing, tmp_path):
    with watch.screen(scenario=QUIET, env=failing(since=tmp_path / "since", read=once(errno.EAGAIN))) as screen:
        screen.wait_for("modem up")
        (tmp_path / "since").touch()
        screen.resize(100, 30)
        screen.wait_for(lambda _: screen.screen.display[29].startswith(" h help"))
        screen.press("q")
        assert screen.wait() == 0


@pytest.mark.parametrize("error", [errno.EINTR, errno.EIO])
def test_who_restores_the_terminal_may_be_interrupted_or_lose_what_was_printed(watch, failing, error):
    with watch.screen(scenario=QUIET, env=failing(only="lyn_watch_tty", read=once(error))) as screen:
        screen.wait_for("modem up")
        screen.press("q")
        assert screen.wait() == 0
        assert screen.settings() == screen.found


def test_a_terminal_that_is_gone_ends_the_picture(watch, failing, tmp_path):
    env = failing(since=tmp_path / "since", read=f"1 0 {int(errno.EIO)}")
    with watch.screen(scenario=QUIET, env=env) as screen:
        screen.wait_for("modem up")
        (tmp_path / "since").touch()
        screen.press("x")
        assert screen.wait() == 0


@pytest.mark.parametrize("error", [errno.EINTR, errno.EIO])
def test_what_the_terminal_takes_late_or_not_holds_nothing_up(watch, failing, error):
    with watch.screen(scenario=QUIET, env=failing(write=once(error))) as screen:
        screen.wait_for("modem up")
        screen.press("q")
        assert screen.wait() == 0
        assert screen.leftovers() == []


# The demo client's line editor

needs_editor = pytest.mark.skipif("libedit" not in subprocess.run(
    ["ldd", BUILD / "lyn_demo"], capture_output=True, text=True, check=False).stdout, reason="built without libedit")


def edits(terminal):
    return not termios.tcgetattr(terminal.child.child_fd)[3] & termios.ICANON


@needs_editor
@pytest.mark.parametrize("call", ["el_init", "fopen", "tcgetattr"])
def test_without_an_editor_lines_are_read_as_they_are(demo, failing, call):
    with demo.terminal(env={"TERM": "xterm", **failing(**{call: "1 0 12"})}) as terminal:
        terminal.expect(PROMPT)
        assert not edits(terminal)
        terminal.sendline("99")
        terminal.expect("NOT SUPPORTED")
        terminal.expect(PROMPT)
        assert terminal.terminate() == 0


@needs_editor
def test_without_a_memory_for_lines_they_are_edited_all_the_same(demo, failing):
    with demo.terminal(env={"TERM": "xterm", **failing(history_winit="1 0 12")}) as terminal:
        terminal.expect(PROMPT)
        terminal.sendline("98\x7f9")
        terminal.expect("Option ID[99] NOT SUPPORTED")
        terminal.expect(PROMPT)
        terminal.sendline("\x1b[A")
        terminal.expect(PROMPT)
        assert terminal.terminate() == 0


@needs_editor
def test_an_interrupted_wait_for_a_key_is_gone_on_with(demo, failing):
    with demo.terminal(env={"TERM": "xterm", **failing(ppoll=f"1 3 {int(errno.EINTR)}")}) as terminal:
        terminal.expect(PROMPT)
        terminal.sendline("99")
        terminal.expect("Option ID[99] NOT SUPPORTED")
        assert terminal.terminate() == 0


@needs_editor
def test_ctrl_d_at_what_is_no_terminal_any_more_is_the_end(demo, failing, tmp_path):
    env = {"TERM": "xterm", **failing(since=tmp_path / "since", isatty=once(errno.EIO))}
    with demo.terminal(env=env) as terminal:
        terminal.expect(PROMPT)
        (tmp_path / "since").touch()
        terminal.child.send("\x04")
        terminal.expect(PROMPT)
        assert terminal.terminate() == 0


@needs_editor
def test_a_terminal_whose_keys_cannot_be_read_ends_the_lines(demo, failing, tmp_path):
    env = {"TERM": "xterm", **failing(since=tmp_path / "since", read=f"1 1 {int(errno.EIO)}")}
    with demo.terminal(env=env) as terminal:
        terminal.expect(PROMPT)
        (tmp_path / "since").touch()
        terminal.sendline("99")
        terminal.expect(PROMPT)
        assert terminal.terminate() == 0
