"""clients/python/morvane.py against the built server.

    MORVANE_PROGRAM=build/debug/bin/morvaneserver python3 tests/python/client_test.py
"""

from __future__ import annotations

import os
import pathlib
import socket
import sys
import threading
import unittest
from collections.abc import Callable

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "clients" / "python"))

from morvane import BadAnswerError, Client, MorvaneError, NoAnswerError, ServerError  # noqa: E402
from served import Served  # noqa: E402

PROGRAM = os.environ["MORVANE_PROGRAM"]
ANSWER = '<morvane xmlns="http://morvane.example/1/server/ResponseSchema" version="1.01">'


class ServedTest(unittest.TestCase):
    server: Served
    client: Client

    @classmethod
    def setUpClass(cls) -> None:
        cls.server = cls.enterClassContext(Served(PROGRAM, max_input=200_000))
        cls.client = Client(port=cls.server.port)

    def setUp(self) -> None:
        # Classifiers of one test are nobody else's.
        self.name = self.id().rsplit(".", 1)[-1]

    def totals(self) -> dict[str, int]:
        return {info.name: info.total_count for info in self.client.info(self.name)}

    def test_learns_and_answers(self) -> None:
        client = self.client
        client.create(self.name, ["english", "swedish"])
        client.train(self.name, "english", "hello and good morning", "the weather is good")
        client.train(self.name, "swedish", b"hej och god morgon")
        client.add_class(self.name, "danish", "finnish")
        client.remove_class(self.name, "finnish")
        self.assertEqual(client.classes(self.name), ["english", "swedish", "danish"])
        english = client.info(self.name)[0]
        self.assertGreaterEqual(english.total_count, english.unique_features)
        self.assertGreater(english.unique_features, 7)

        known, unknown = client.classify_many(self.name, ["god morgon", "xyzzy"])
        self.assertEqual((known.best, known.text_coverage), ("swedish", 1.0))
        self.assertEqual(known.probability, max(known.probabilities.values()))
        self.assertAlmostEqual(sum(known.probabilities.values()), 1, places=4)
        self.assertEqual(unknown.text_coverage, 0)
        self.assertEqual(client.classify(self.name, "god morgon"), known)

        words = client.keywords(self.name, "good morgon and och")
        self.assertIn(("morgon", "swedish"), [(word.word, word.class_name) for word in words])
        strengths = [word.probability for word in words]
        self.assertEqual(strengths, sorted(strengths, reverse=True))

        client.untrain(self.name, "swedish", "hej och god morgon")
        self.assertEqual(self.totals()["swedish"], 0)
        client.remove(self.name)
        client.remove(self.name)
        with self.assertRaises(ServerError):
            client.info(self.name)

    def test_write_sequence_is_all_or_nothing(self) -> None:
        with self.client.write(self.name) as w:
            w.create()
            w.add_class("a")
            w.train("a", "one two")
            self.assertEqual(len(w), 3)
            with self.assertRaises(ServerError, msg="nothing has been sent yet"):
                self.client.info(self.name)
        before = self.totals()
        self.assertGreater(before["a"], 0)

        def left_by_exception() -> None:
            with self.client.write(self.name) as w:
                w.train("a", "three")
                raise KeyError("of the caller's own")

        def refused_here() -> None:
            with self.client.write(self.name) as w:
                w.train("a", "three")
                w.train("a\n", "four")

        def refused_there() -> None:
            with self.client.write(self.name) as w:
                w.train("a", "three")
                w.train("b", "four")

        def too_large() -> None:
            with self.client.write(self.name, max_size=10) as w:
                w.train("a", "three")

        cases: list[tuple[Callable[[], None], type[Exception]]] = [
            (left_by_exception, KeyError),
            (refused_here, ValueError),
            (refused_there, ServerError),
            (too_large, ServerError),
        ]
        for case, error in cases:
            with self.subTest(case.__name__):
                self.assertRaises(error, case)
                self.assertEqual(self.totals(), before)
        with self.assertRaisesRegex(ValueError, "has ended"):
            w.train("a", "late")
        with self.assertRaisesRegex(ValueError, "has ended"), w:
            pass
        with self.client.write("nothing is sent for no calls"):
            pass

    def test_failures_name_the_call(self) -> None:
        self.client.create(self.name, ["a"])

        def second_train() -> None:
            with self.client.write(self.name) as w:
                w.add_class("b")
                w.train("a", "x")
                w.train("c <&>", "x")

        cases: list[tuple[Callable[[], object], int, int | None, str, str]] = [
            (lambda: self.client.classify("gone", "x"), 4000, 0, "classify in 'gone'", "could not be found"),
            (lambda: self.client.create(self.name), 4000, 0, f"create in '{self.name}'", "already exists"),
            (second_train, 4000, 2, f"train 2 of 2 in '{self.name}', class 'c <&>'", "'c <&>'"),
            (
                lambda: self.client.train(self.name, "a", "x" * 300_000),
                4013,
                0,
                f"train in '{self.name}', class 'a'",
                "maximum input size 200000",
            ),
            (
                lambda: self.client.train(self.name, "a", *["x" * 200_000] * 2),
                4013,
                None,
                f"2 calls in '{self.name}'",
                "maximum input size",
            ),
        ]
        for run, code, index, call, words in cases:
            with self.subTest(call), self.assertRaises(ServerError) as caught:
                run()
            error = caught.exception
            self.assertEqual((error.status_code, error.index, error.call), (code, index, call))
            self.assertIn(words, error.message)
            self.assertTrue(str(error).startswith(f"{call}: {code} "), str(error))

    def test_names_come_back_as_they_were_given_or_are_refused(self) -> None:
        self.client.create(self.name)
        carried = [" ", "&<>\"'", "a  b", "räksmörgås", "日本語", "😀", "\x85\xa0", "é" * 128, "]]>", "&#6;"]
        self.client.add_class(self.name, *carried)
        self.assertEqual(self.client.classes(self.name), carried)
        self.client.train(self.name, "日本語", "x")
        self.assertEqual(self.client.classify(self.name, "x").best, "日本語")

        refused = [
            ("", "is empty"),
            ("a\tb", r"character 1 .*U\+0009, is a control character"),
            ("\0", r"U\+0000"),
            ("\x7f", r"U\+007F"),
            ("a\ud800", "half of a surrogate pair"),
            ("\ufffe", "none that XML can carry"),
            ("é" * 128 + "a", "257 bytes"),
        ]
        for name, words in refused:
            with self.subTest(name), self.assertRaisesRegex(ValueError, words):
                self.client.add_class(self.name, name)

        for name in ["r ä&'[]", "x" * 128, "a.b"]:
            self.client.create(name)
            self.assertEqual(self.client.classes(name), [])
        for name in ["", ".x", "a/b", "..", "a\\b", "c:d", "*", "?", '"', "<", "|", "a\n", "x" * 129]:
            with self.subTest(name), self.assertRaises(ValueError):
                self.client.create(name)

    def test_texts_of_any_characters_and_bytes(self) -> None:
        self.client.create(self.name, ["a", "b"])
        every_byte = bytes(range(256))
        texts: list[str | bytes] = ["", "\0", "]]> <&\r\n\t\ufffe", "räksmörgås 日本語 😀", every_byte]
        for text in texts:
            with self.subTest(text):
                self.client.train(self.name, "a", text)
                self.client.untrain(self.name, "a", text)
                self.assertEqual(self.totals()["a"], 0)
        # The server sees the same bytes, however they were given.
        self.client.train(self.name, "a", "blåbär")
        self.assertEqual(self.client.classify(self.name, "blåbär".encode()).text_coverage, 1)
        self.assertEqual([w.word for w in self.client.keywords(self.name, "blåbär")][:1], ["blåbär"])
        with self.assertRaisesRegex(ValueError, "character 2 of the text is U\\+DC80, half of a surrogate"):
            self.client.train(self.name, "a", "xy\udc80")
        with self.assertRaisesRegex(TypeError, "not a single text"):
            self.client.classify_many(self.name, "abc")
        self.assertEqual(self.client.classify_many(self.name, []), [])


class StrangerTest(unittest.TestCase):
    """Peers that are no Morvane Server, or one in trouble."""

    def failure(self, answer: bytes | None, timeout: float = 60) -> MorvaneError:
        """What classify() raises if the peer reads the request, sends this and ends; None: it is silent."""
        with socket.create_server(("127.0.0.1", 0)) as listener:
            done = threading.Event()

            def serve() -> None:
                connection, _ = listener.accept()
                with connection:
                    while connection.recv(1 << 16):
                        pass
                    if answer is None:
                        done.wait(60)
                    else:
                        try:
                            connection.sendall(answer)
                        except OSError:
                            pass

            thread = threading.Thread(target=serve)
            thread.start()
            client = Client(port=listener.getsockname()[1], timeout=timeout, max_answer=100_000)
            try:
                client.classify("c", "x")
            except MorvaneError as error:
                return error
            finally:
                done.set()
                thread.join()
        self.fail("no failure")

    def test_answers_that_are_none(self) -> None:
        success = '<status success="true" statusCode="2000"/>'
        classify = '<classify id="0"><classification textCoverage="1"><class className="a" p="{}"/>{}'
        read = ANSWER + success + f"<readCalls>{classify}</classification></classify></readCalls></morvane>"
        bomb = '<!DOCTYPE m [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;">]>'
        cases: list[tuple[bytes, str]] = [
            (b"HTTP/1.1 400 Bad Request\r\n\r\n", "can't be read as XML"),
            (b"\xff\xfe<\0m\0", "can't be read as XML"),
            ((bomb + ANSWER + success + "</morvane>").encode(), "DOCTYPE"),
            (b"<html/>", "not of a Morvane Server"),
            ((ANSWER + "</morvane>").encode(), "not of a Morvane Server"),
            ((ANSWER + success + "</morvane>").encode(), "doesn't answer the calls"),
            (read.format(0.5, "").replace('id="0"', 'id="1"').encode(), "doesn't answer the calls"),
            (read.format("much", "").encode(), "unexpected form"),
            (read.format(0.5, "<class/>").encode(), "unexpected form"),
            ((ANSWER + '<status success="false"/></morvane>').encode(), "no status code"),
            (read.format(0.5, " " * 100_000).encode(), "larger than max_answer"),
        ]
        for answer, words in cases:
            with self.subTest(answer[:200]):
                error = self.failure(answer)
                self.assertIsInstance(error, BadAnswerError)
                self.assertIn(words, str(error))
                self.assertTrue(str(error).startswith("classify in 'c': "))

    def test_no_answer_says_whether_the_request_may_have_run(self) -> None:
        for answer, timeout, words in [(b"", 60, "without an answer"), (None, 2, "within 2 seconds")]:
            error = self.failure(answer, timeout)
            self.assertIn(words, str(error))
            self.assertTrue(isinstance(error, NoAnswerError) and error.may_have_run)
        with socket.socket() as nobody:
            nobody.bind(("127.0.0.1", 0))  # and doesn't listen
            with self.assertRaisesRegex(NoAnswerError, "getInformation in 'c': .*refused") as caught:
                Client(port=nobody.getsockname()[1]).info("c")
            self.assertFalse(caught.exception.may_have_run)
        with socket.create_server(("127.0.0.1", 0)) as deaf:
            # More than the system takes off our hands while nobody reads.
            with self.assertRaises(NoAnswerError) as caught:
                Client(port=deaf.getsockname()[1], timeout=0.5).train("c", "a", b"x" * 30_000_000)
            self.assertFalse(caught.exception.may_have_run)

    def test_failure_without_words_or_with_strange_ones(self) -> None:
        status = '<status success="false" statusCode="{}">{}</status></morvane>'
        for code, text, index in [(5030, "", 0), (4000, "No.\nCall id: 7\nReadCall: classify\n", 0)]:
            error = self.failure((ANSWER + status.format(code, text)).encode())
            assert isinstance(error, ServerError)
            self.assertEqual((error.status_code, error.index, error.message), (code, index, text.strip()))


if __name__ == "__main__":
    unittest.main()
