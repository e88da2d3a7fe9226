"""What the loop promises, whatever the functions of the file system are like."""
from __future__ import annotations

import base64
import hashlib
import json
import os
import random
import subprocess
import sys
import unittest
from typing import Any

from driver import KIT, PATIENCE, Driver, eventually, python, request_line, temporary_folder
from odd_helper import pattern

FILE = {"path": "/file", "name": "file", "isDirectory": False, "size": 3, "modifiedAt": "2024-05-01T12:34:56.789Z"}


class Promises:
    """Held to by every kind of function; each test asks a helper of its own."""

    kind = ""

    def setUp(self) -> None:
        self.helper = Driver(self, python("odd_helper.py", self.kind))  # type: ignore[arg-type]

    def tearDown(self) -> None:
        if self.helper.child.poll() is None and not self.helper.child.stdin.closed:  # type: ignore[union-attr]
            self.assertEqual(self.helper.end(), 0, self.helper.stderr)
            self.assertFalse(self.helper.has_more)
            self.assertRegex(self.helper.stderr, r"ended\nafter serve\n\Z")

    def answer(self: Any, line: str) -> Any:
        self.helper.send(line + "\n")
        return json.loads(self.helper.line())

    def open(self: Any, path: str, *flags: str) -> int:
        return self.helper.ok("open", path=path, flags=flags or ["read"])["handle"]

    def test_many_lines_at_once_are_answered_in_order(self: Any) -> None:
        ids = [str(number) for number in range(500)]
        self.helper.send("".join(request_line(each, "getattr" if int(each) % 2 else "ping", path="/file") for each in ids))
        self.assertEqual([json.loads(self.helper.line())["id"] for _ in ids], ids)

    def test_a_line_may_arrive_in_pieces_of_one_byte(self: Any) -> None:
        for byte in b'{"id":"x","op":"getattr","path":"\\/file"}\n':
            self.helper.send(bytes([byte]))
        self.assertEqual(json.loads(self.helper.line())["result"]["size"], 3)

    def test_a_success_without_a_result_has_only_id_and_ok(self: Any) -> None:
        self.helper.send('{"id":"1","op":"ping"}\n')
        self.assertEqual(self.helper.line(), '{"id":"1","ok":true}')

    def test_ids_are_echoed_exactly(self: Any) -> None:
        for each in ("", "007", 'a"b\\c\n', "gr\u00fc\u00df \U0001f600", "1" * 300):
            self.assertEqual(self.answer(json.dumps({"id": each, "op": "ping"}))["id"], each)

    def test_keys_come_in_any_order_with_spaces_unknown_keys_and_a_carriage_return(self: Any) -> None:
        answer = self.answer(' { "path" : "/file", "x": [1, {}], "op": "getattr", "id": "9" } \r')
        self.assertEqual(answer["result"]["name"], "file")

    def test_getattr_gives_path_name_kind_size_and_time(self: Any) -> None:
        self.assertEqual(self.helper.ok("getattr", path="/file"), FILE)
        self.assertEqual(self.helper.ok("getattr", path="/sub/a b"), {**FILE, "path": "/sub/a b", "name": "a b"})
        root = self.helper.ok("getattr", path="/")
        self.assertEqual((root["path"], root["name"], root["isDirectory"], root["size"]), ("/", "/", True, 0))

    def test_times_are_datetimes_or_seconds(self: Any) -> None:
        for path, text in (("/seconds", "2024-05-01T12:34:56.789Z"), ("/wholeSeconds", "1969-12-31T23:59:59.000Z"),
                           ("/zone", "2024-05-01T12:34:00.000Z"), ("/firstYear", "0001-01-01T00:00:00.000Z"),
                           ("/lastYear", "9999-12-31T23:59:59.999Z")):
            self.assertEqual(self.helper.ok("getattr", path=path)["modifiedAt"], text, path)

    def test_readdir_gives_every_member_its_path_below_the_folder(self: Any) -> None:
        def names(path: str) -> list[tuple[str, str]]:
            return [(entry["path"], entry["name"]) for entry in self.helper.ok("readdir", path=path)]

        self.assertEqual(names("/"), [("/file", "file"), ("/sub", "sub")])
        self.assertEqual(names("/generator"), [("/generator/x", "x")])
        self.assertEqual(names("/empty"), [])
        odd = ['a"b', "back\\slash", "line\nbreak", "gr\u00fc\u00df", "\U0001f600", ".dot", "\x7f"]
        self.assertEqual(names("/names"), [("/names/" + name, name) for name in odd])
        self.assertEqual([name for _, name in names("/many")], [str(number) for number in range(5000)])
        self.assertEqual(self.helper.ok("readdir", path="/")[0], FILE)

    def test_a_listing_that_fails_half_way_is_a_failure(self: Any) -> None:
        self.assertEqual(self.helper.code("readdir", path="/soon"), "EACCES")
        self.assertEqual(self.helper.code("readdir", path="/late"), "EACCES")
        self.assertEqual(len(self.helper.ok("readdir", path="/")), 2)

    def test_posix_errors_keep_their_code_and_message(self: Any) -> None:
        self.assertEqual(self.helper.error("getattr", path="/posix"),
                         {"message": "so it is", "code": "ENOTEMPTY", "name": "PosixError"})
        self.assertEqual(self.helper.error("getattr", path="/number"),
                         {"message": "so it is too", "code": "EISDIR", "name": "IsADirectoryError"})
        self.assertEqual(self.helper.error("getattr", path="/kind"),
                         {"message": "there is no such page", "code": "ENOENT", "name": "FileNotFoundError"})
        self.assertEqual(self.helper.error("getattr", path="/system")["message"],
                         "No such file or directory: /there/is/no/such/file")

    def test_any_other_exception_has_no_code_is_printed_with_its_stack_and_ends_nothing(self: Any) -> None:
        for path, message in (("/fault", "a mistake of the author"), ("/empty", "KeyError"), ("/oddNumber", "what is that"),
                              ("/noCode", "PosixError: 'ENOFILE' is no POSIX name; expected one like 'ENOENT'")):
            error = self.helper.error("getattr", path=path)
            self.assertNotIn("code", error)
            self.assertEqual(error["message"], message)
        self.helper.ok("ping")
        self.helper.said(r"kemvi-helper: getattr of /fault failed: TypeError: a mistake of the author\n"
                         r"Traceback \(most recent call last\):\n  File \".*odd_helper\.py\"")
        self.assertNotIn("kemvi_helper/session.py", self.helper.stderr)

    def test_what_would_silently_become_0_or_1970_is_an_error_that_names_the_path(self: Any) -> None:
        for name in ("nothing", "dict", "textSize", "fractionSize", "negativeSize", "noSize", "textFlag", "textTime",
                     "invalidTime"):
            self.assertRegex(self.helper.error("getattr", path="/" + name)["message"], f'for "/{name}", expected')

    def test_a_size_that_is_not_known_is_told_by_minus_one(self: Any) -> None:
        self.assertEqual(self.helper.ok("getattr", path="/unknownSize")["size"], -1)

    def test_a_list_with_a_name_that_is_none_is_an_error(self: Any) -> None:
        for path in ("/slash", "/dots", "/nameless", "/noName", "/noList"):
            self.assertRegex(self.helper.error("readdir", path=path)["message"], "the file system gave .* expected")

    def test_a_line_that_is_no_json_is_answered_when_it_shows_an_id(self: Any) -> None:
        filling = '","x":"' + "x" * 600
        for line in ('{"id":"5","op":"ping"', '{"id":"5"', '{"id":"5","op":}', '{"id":"5","op":"ping"}}',
                     '{"id":"5","offset":NaN}', f'{{"id":"5{filling}', '{"id":"5","dataBase64":"' + "A" * 600):
            answer = self.answer(line)
            self.assertEqual((answer["id"], answer["ok"], answer["error"]["code"]), ("5", False, "EINVAL"), line[:40])

    def test_a_line_without_an_id_is_reported_not_answered(self: Any) -> None:
        self.helper.send('garbage\n\n[]\n"text"\n{"op":"ping"}\nnull\n{"id":null,"op":"ping"}\n')
        self.helper.send(b'\xff\n' + b"[" * 100_000 + b"\n")
        self.helper.ok("ping")
        self.helper.said(r'cannot be read: .*: "garbage"\n(kemvi-helper: [^\n]*\n){8}\Z')

    def test_an_id_that_is_a_number_is_told_to_be_wrong(self: Any) -> None:
        answer = self.answer('{"id":7,"op":"ping"}')
        self.assertEqual((answer["id"], answer["error"]["message"]), ("7", "id of the request must be a string"))

    def test_a_request_without_an_operation_or_with_an_unknown_one_is_invalid(self: Any) -> None:
        self.assertEqual(self.answer('{"id":"1"}')["error"]["code"], "EINVAL")
        for op in ("nonsense", "", "__init__", "end"):
            self.assertEqual(self.helper.code(op, path="/"), "EINVAL", op)

    def test_fields_of_the_wrong_type_are_invalid(self: Any) -> None:
        handle = self.open("/file", "read", "write")
        time = "2024-05-01T12:34:56.789Z"
        wrong: list[tuple[str, dict[str, Any]]] = [
            ("getattr", {}), ("getattr", {"path": 5}), ("getattr", {"path": "file"}), ("readdir", {"path": ""}),
            ("getattr", {"path": "/nul\0"}), ("chmod", {"path": "/a", "mode": "0644"}), ("chmod", {"path": "/a", "mode": 4096}),
            ("chmod", {"path": "/a", "mode": True}), ("rename", {"oldPath": "/a"}), ("utimes", {"path": "/a", "mtime": 5}),
            ("utimes", {"path": "/a", "mtime": "2024-05-01T12:34:56Z"}), ("utimes", {"path": "a", "mtime": time}),
            ("utimes", {"path": "/a", "mtime": "2024-13-01T12:34:56.789Z"}),
            ("utimes", {"path": "/a", "mtime": "0001-01-01T00:00:00.000+02:00"}),
            ("read", {"handle": handle, "offset": -1, "length": 1}), ("read", {"handle": handle, "offset": 0, "length": 1.5}),
            ("read", {"handle": handle, "offset": 0}), ("write", {"handle": handle, "offset": "0", "dataBase64": ""}),
            ("read", {"handle": handle, "offset": 0, "length": 1 << 60}),
            ("write", {"handle": handle, "offset": 0}), ("open", {"path": "/a"}), ("open", {"path": "/a", "flags": []}),
            ("open", {"path": "/a", "flags": ["append"]}), ("open", {"path": "/a", "flags": ["read", "create"]}),
            ("open", {"path": "/a", "flags": "read"}), ("open", {"path": "/a", "flags": [["read"]]}),
        ]
        for op, fields in wrong:
            self.assertEqual(self.helper.code(op, **fields), "EINVAL", (op, fields))
        self.assertEqual(self.answer('{"id":"1","op":"getattr","path":"/\\udcff"}')["error"]["code"], "EINVAL")

    def test_handles_are_numbers_that_never_come_twice_and_end_with_release(self: Any) -> None:
        first = self.open("/file")
        second = self.open("/file", "write", "create")
        self.assertNotEqual(first, second)
        self.assertEqual(self.helper.code("read", handle=second, offset=0, length=1), "EBADF")
        self.assertEqual(self.helper.code("write", handle=first, offset=0, dataBase64=""), "EBADF")
        self.helper.ok("release", handle=first)
        for op in ("read", "flush", "release"):
            self.assertEqual(self.helper.code(op, handle=first, offset=0, length=1), "EBADF", op)
        for odd in (str(second), second + 0.0, [second], True):
            self.assertEqual(self.helper.code("flush", handle=odd), "EBADF", odd)
        self.assertNotIn(self.open("/file"), (first, second))

    def test_a_handle_is_given_back_even_when_release_fails(self: Any) -> None:
        handle = self.open("/releaseFails")
        self.assertEqual(self.helper.code("release", handle=handle), "EPERM")
        self.assertEqual(self.helper.code("release", handle=handle), "EBADF")

    def test_reads_give_the_bytes_asked_for_however_they_are_returned(self: Any) -> None:
        for path in ("/file", "/bytearray", "/memoryview", "/tooMuch"):
            handle = self.open(path)
            for offset, length in ((0, 0), (0, 1), (7, 2), (5, 3), (3, 65536), (1, 49153), (11, 1 << 20)):
                data = self.helper.ok("read", handle=handle, offset=offset, length=length)
                self.assertEqual(data, pattern(offset, length), (path, offset, length))
        handle = self.open("/everySecond")
        self.assertEqual(self.helper.ok("read", handle=handle, offset=0, length=100), bytes(100))

    def test_a_read_at_the_end_of_the_file_is_short_past_it_empty(self: Any) -> None:
        handle = self.open("/short")
        for offset, length, count in ((0, 1000, 100), (100, 1000, 0), (0, 1 << 40, 100)):
            self.assertEqual(len(self.helper.ok("read", handle=handle, offset=offset, length=length)), count)

    def test_a_long_read_comes_in_one_answer_of_many_pieces(self: Any) -> None:
        handle = self.open("/file")
        for length in (3 << 19, (3 << 19) + 1, 8_000_001):
            data = self.helper.ok("read", handle=handle, offset=1, length=length)
            self.assertTrue(data == pattern(1, length), length)

    def test_a_long_read_that_fails_half_way_is_a_failure(self: Any) -> None:
        handle = self.open("/breaksAt2M")
        self.assertEqual(self.helper.code("read", handle=handle, offset=0, length=4 << 20), "EPERM")
        self.assertEqual(len(self.helper.ok("read", handle=handle, offset=0, length=10)), 10)

    def test_a_read_that_gives_no_bytes_is_an_error_that_says_so(self: Any) -> None:
        self.assertEqual(self.helper.error("read", handle=self.open("/text"), offset=0, length=5)["message"],
                         "read of the file system gave 'text', expected bytes; text becomes bytes with .encode()")
        self.assertNotIn("code", self.helper.error("read", handle=self.open("/count"), offset=0, length=5))
        self.helper.said("kemvi-helper: read of /count failed: TypeError: ")

    def test_written_bytes_arrive_as_they_were_sent(self: Any) -> None:
        for size in (0, 1, 2, 3, 100, 380, 1000, 65536, (1 << 20) + 1, 8 << 20):
            handle = self.open("/written", "read", "write", "create")
            data = random.Random(size).randbytes(size)
            self.helper.ok("write", handle=handle, offset=0, dataBase64=base64.b64encode(data).decode())
            got = self.helper.ok("read", handle=handle, offset=0, length=size + 10)
            self.assertEqual(hashlib.sha256(got).digest(), hashlib.sha256(data).digest(), size)

    def test_a_payload_stands_anywhere_in_the_line_with_its_slashes_escaped_or_not(self: Any) -> None:
        data = b"\xff" * 600 + random.Random(1).randbytes(900)  # begins with slashes
        plain = base64.b64encode(data).decode()
        escaped = plain.replace("/", "\\/")
        for form in ('{{"dataBase64":"{escaped}","id":"w","op":"write","handle":{handle},"offset":0}}',
                     '{{"id":"w","dataBase64":"{plain}","op":"write","handle":{handle},"offset":0}}',
                     '{{"id":"w","op":"write","handle":{handle},"offset":0,"dataBase64" : "{escaped}"}}',
                     '{{"id":"w","op":"write","x":"\\"dataBase64\\":\\"","handle":{handle},"offset":0,"dataBase64":"{plain}"}}'):
            handle = self.open("/written", "read", "write")
            answer = self.answer(form.format(escaped=escaped, plain=plain, handle=handle))
            self.assertIs(answer["ok"], True, (form, answer))
            self.assertTrue(self.helper.ok("read", handle=handle, offset=0, length=5000) == data, form)

    def test_a_payload_that_is_not_padded_base64_is_invalid_and_nothing_is_written(self: Any) -> None:
        handle = self.open("/written", "read", "write")
        for filling in ("", "AAAA" * 200):
            for wrong in ("A", "AA", "AAA", "A===", "====", "AA=A", "AA==AAAA", "AA-_", "AA A", "\u00e4AAA", "A\\AA", "AA\n="):
                code = self.helper.code("write", handle=handle, offset=0, dataBase64=filling + wrong)
                self.assertEqual(code, "EINVAL", (len(filling), wrong))
        self.assertEqual(self.helper.ok("read", handle=handle, offset=0, length=10), b"")

    def test_errors_of_write_and_flush_reach_the_program(self: Any) -> None:
        handle = self.open("/full", "write")
        self.assertEqual(self.helper.code("write", handle=handle, offset=0, dataBase64="AAAA"), "ENOSPC")
        self.assertEqual(self.helper.code("flush", handle=self.open("/flushFails", "write")), "EPERM")

    def test_modes_are_numbers_times_are_datetimes(self: Any) -> None:
        self.helper.ok("chmod", path="/file", mode=0o755)
        self.helper.ok("utimes", path="/file", mtime="2024-05-01T14:34:56.789+02:00")
        self.helper.ok("rename", oldPath="/a", newPath="/b")
        self.helper.said(r"chmod /file 493\nutimes /file 2024-05-01T12:34:56\.789000\+00:00\nrename /a /b\n")
        self.assertEqual(self.helper.ok("statfs"), {"files": 1, "directories": 2, "bytes": 3})

    def test_a_change_that_the_file_system_lacks_is_not_permitted(self: Any) -> None:
        self.assertEqual(self.helper.code("mkdir", path="/d"), "EPERM")
        self.assertEqual(self.helper.code("unlink", path="/d"), "EPERM")

    def test_what_is_open_at_the_end_of_the_input_is_given_back_also_past_a_failure(self: Any) -> None:
        for path in ("/one", "/releaseFails", "/two"):
            self.open(path)
        self.assertEqual(self.helper.end(), 0)
        self.assertRegex(self.helper.stderr, r"(?s)released /one\n.*/releaseFails failed: .*released /two\n")
        self.assertRegex(self.helper.stderr, r"ended\nafter serve\n\Z")

    def test_nothing_but_answers_reaches_standard_output(self: Any) -> None:
        for path in ("/prints", "/printsBelow", "/file"):
            self.assertEqual(self.helper.ok("getattr", path=path)["path"], path)
        self.assertEqual(self.helper.end(), 0)
        for words in ("print", "sys.stdout.write", "os.write", "from a child"):
            self.assertIn(words + "\n", self.helper.stderr)

    def test_an_input_that_ends_within_a_line_is_reported(self: Any) -> None:
        self.helper.send('{"id":"1","op":"pi')
        self.assertEqual(self.helper.end(), 0)
        self.assertIn("kemvi-helper: the input ended within a line\n", self.helper.stderr)

    def test_a_reader_of_the_answers_that_goes_away_ends_the_helper_in_order(self: Any) -> None:
        self.open("/file")
        self.helper.child.stdout.close()
        try:
            while self.helper.child.poll() is None:
                self.helper.child.stdin.write(request_line("2", "ping").encode())
        except BrokenPipeError:
            pass
        self.assertEqual(self.helper.exit(), 0)
        self.assertRegex(self.helper.stderr, r"released /file\nended\nafter serve\n\Z")

    def test_a_program_that_ends_itself_answers_first(self: Any) -> None:
        self.open("/file")
        self.helper.error("getattr", path="/exits")
        self.assertEqual(self.helper.exit(), 3)
        self.assertRegex(self.helper.stderr, r"released /file\nended\n\Z")


class PlainFunctions(Promises, unittest.TestCase):
    kind = "plain"


class Coroutines(Promises, unittest.TestCase):
    kind = "coroutines"


class Futures(Promises, unittest.TestCase):
    kind = "futures"


class Helpers(unittest.TestCase):
    """Processes that differ in more than their functions."""

    def script(self, text: str, environment: dict[str, str] | None = None) -> Driver:
        file = temporary_folder(self) / "script.py"
        file.write_text(text)
        return Driver(self, [sys.executable, file], environment)

    READ_ONLY = """
from kemvi_helper import *
class ReadOnly:
    def getattr(self, path):
        if path not in ("/", "/f"):
            raise FileNotFoundError(path)
        return Stat(is_directory=path == "/", size=1)
    def readdir(self, path):
        return [Entry("f", size=1)]
    def read(self, file, offset, length):
        assert file == "/f"
        return b"x"[offset:offset + length]
"""

    def test_without_a_function_write_every_change_is_refused_as_read_only(self) -> None:
        helper = self.script(self.READ_ONLY + "serve(ReadOnly())")
        time = "2024-05-01T12:34:56.789Z"
        changes: list[tuple[str, dict[str, Any]]] = [
            ("open", {"path": "/f", "flags": ["write", "create"]}), ("open", {"path": "/f", "flags": ["read", "write"]}),
            ("mkdir", {"path": "/d"}), ("unlink", {"path": "/f"}), ("rename", {"oldPath": "/f", "newPath": "/g"}),
            ("chmod", {"path": "/f", "mode": 1}), ("utimes", {"path": "/f", "mtime": time})]
        for op, fields in changes:
            self.assertEqual(helper.code(op, **fields), "EROFS", op)

    def test_without_a_function_open_a_file_is_its_path_and_a_folder_cannot_be_opened(self) -> None:
        helper = self.script(self.READ_ONLY + "serve(ReadOnly())")
        handle = helper.ok("open", path="/f", flags=["read"])["handle"]
        self.assertEqual(helper.ok("read", handle=handle, offset=0, length=5), b"x")
        helper.ok("flush", handle=handle)
        helper.ok("release", handle=handle)
        self.assertEqual(helper.code("open", path="/", flags=["read"]), "EISDIR")
        self.assertEqual(helper.code("open", path="/none", flags=["read"]), "ENOENT")
        self.assertEqual(helper.ok("statfs"), {"files": 0, "directories": 0, "bytes": 0})
        self.assertRegex(helper.ok("getattr", path="/f")["modifiedAt"], r"^20\d\d-")

    def test_what_cannot_be_served_is_refused(self) -> None:
        for text, message in (
            ("del ReadOnly.read; serve(ReadOnly())", "TypeError: serve: the file system has no function read\n"),
            ("ReadOnly.get_attr = ReadOnly.getattr; del ReadOnly.getattr; serve(ReadOnly())",
             "no function getattr (get_attr is never called: it is called getattr)\n"),
            ("ReadOnly.mkdir = 5; serve(ReadOnly())", "serve: mkdir of the file system must be a function, not 5\n"),
            ("serve(None)", "serve: the file system has no function getattr\n"),
            ("serve(ReadOnly(), loop='fast')", "serve: loop must be \"blocking\" or \"events\", not 'fast'\n"),
        ):
            helper = self.script(self.READ_ONLY + text)
            self.assertEqual(helper.exit(), 1)
            self.assertIn(message, helper.stderr)

    def test_functions_that_are_never_called_are_pointed_out(self) -> None:
        helper = self.script(self.READ_ONLY + "ReadOnly.rmdir = ReadOnly.unLink = ReadOnly.mkDir = None; serve(ReadOnly())")
        helper.ok("ping")
        for hint in ("mkDir is never called: it is called mkdir", "unLink is never called: it is called unlink",
                     "rmdir is never called: unlink is called for folders too"):
            helper.said(f"kemvi-helper: {hint}\n")

    def test_a_forgotten_await_is_named(self) -> None:
        helper = self.script(self.READ_ONLY + """
async def entries(): return []
ReadOnly.readdir = lambda self, path: [entries()]
serve(ReadOnly())""")
        self.assertRegex(helper.error("readdir", path="/")["message"], "is an await missing\\?$")

    def test_the_debug_setting_tells_the_loop_and_when_it_changes(self) -> None:
        for kind, line in (("plain", "blocking loop: plain functions"),
                           ("coroutines", "events loop: getattr, readdir, read, open, .* async"),
                           ("futures", "events loop from here on: a function returned something to await")):
            helper = Driver(self, python("odd_helper.py", kind), {"KEMVI_HELPER_DEBUG": "1"})
            helper.ok("getattr", path="/file")
            helper.said(f"(?m)^kemvi-helper: {line}$")

    def test_under_a_mount_nothing_that_is_printed_before_serving_reaches_the_answers(self) -> None:
        helper = Driver(self, python("odd_helper.py", "before"), {"KEMVI_DRIVE_ID": ""})
        helper.ok("ping")
        helper.said("before serving\n")

    def test_a_thread_that_does_not_end_does_not_keep_the_helper(self) -> None:
        helper = Driver(self, python("odd_helper.py", "thread"))
        helper.ok("ping")
        self.assertEqual(helper.end(), 0)
        self.assertRegex(helper.stderr, r"ended\nafter serve\nkemvi-helper: still busy 2 s after the end of the program "
                                        r"\(tireless\); ending\n\Z")

    def test_what_is_awaited_and_never_there_ends_with_the_input(self) -> None:
        for kind in ("coroutines", "futures"):
            helper = Driver(self, python("odd_helper.py", kind))
            helper.ok("open", path="/file", flags=["read"])
            helper.send(request_line("last", "getattr", path="/never"))
            helper.said("waits\n")
            self.assertEqual(helper.end(), 0)
            self.assertIn("released /file\nended\nafter serve\n", helper.stderr)
            answer = json.loads(helper.line())
            self.assertEqual((answer["id"], answer["ok"]), ("last", False))

    def test_an_answer_that_comes_after_the_end_of_the_input_is_written_all_the_same(self) -> None:
        go = temporary_folder(self) / "go"
        helper = self.script(self.READ_ONLY + """
import asyncio, os
class Slow(ReadOnly):
    async def getattr(self, path):
        print("asked")
        while not os.path.exists(os.environ["KEMVI_TEST_GO"]): await asyncio.sleep(0.01)
        return Stat(size=1)
serve(Slow())""", {"KEMVI_TEST_GO": str(go)})
        helper.send(request_line("1", "getattr", path="/f"))
        helper.said("asked")
        helper.child.stdin.close()  # type: ignore[union-attr]
        go.touch()
        self.assertIs(json.loads(helper.line())["ok"], True)
        self.assertEqual(helper.exit(), 0)

    def test_tasks_go_on_between_requests_and_their_failures_are_said(self) -> None:
        helper = self.script(self.READ_ONLY + """
import asyncio
async def main():
    asyncio.get_running_loop().call_later(0.01, lambda: print("went on"))
    asyncio.get_running_loop().call_later(0.01, lambda: 1 / 0)
    await serve_async(ReadOnly())
    print("after")
asyncio.run(main())""")
        helper.ok("getattr", path="/f")
        helper.said("went on\n")
        helper.said("kemvi-helper: unhandled: ZeroDivisionError")
        helper.ok("getattr", path="/f")
        self.assertEqual(helper.end(), 0)
        self.assertTrue(helper.stderr.endswith("after\n"), helper.stderr)

    def test_requests_may_come_from_a_file(self) -> None:
        for kind in ("plain", "coroutines"):
            file = temporary_folder(self) / "requests"
            file.write_text(request_line("1", "getattr", path="/file") + request_line("2", "ping"))
            with open(file, "rb") as requests:
                done = subprocess.run([*map(str, python("odd_helper.py", kind))], stdin=requests, capture_output=True,
                                      timeout=PATIENCE, check=True, text=True,
                                      env={**os.environ, "PYTHONPATH": str(KIT)})
            self.assertEqual([json.loads(line)["id"] for line in done.stdout.splitlines()], ["1", "2"])

    def test_a_helper_does_not_outlive_the_launcher_that_stays_beside_it(self) -> None:
        launcher = subprocess.Popen(
            ["sh", "-c", 'KEMVI_LAUNCHER=$$ "$@" <&3 & echo $!; wait', "sh", *map(str, python("odd_helper.py", "before"))],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=lambda: os.dup2(0, 3) and None,
            pass_fds=(3,), env={**os.environ, "PYTHONPATH": str(KIT)})
        assert launcher.stdout and launcher.stderr and launcher.stdin
        self.addCleanup(lambda: [stream.close() for stream in (launcher.stdin, launcher.stdout, launcher.stderr)])
        own = int(launcher.stdout.readline())
        launcher.stdin.write(b'{"id":"1","op":"ping"}\n')
        launcher.stdin.flush()
        while b'"ok":true' not in launcher.stdout.readline():
            pass
        launcher.kill()
        launcher.wait()

        def is_gone() -> bool:
            try:
                with open(f"/proc/{own}/stat", encoding="ascii") as stat:
                    return stat.read().rpartition(")")[2].split()[0] == "Z"
            except OSError:
                return True

        eventually(is_gone, "the helper lives on")


if __name__ == "__main__":
    unittest.main()
