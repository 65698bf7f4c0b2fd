"""clients/python/morvane.py against the built server. Its README is run as a guide, and shows what isn't here.

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

from morvane import BadAnswerError, Client, MorvaneError, NoAnswerError, ServerError, WriteSequence  # noqa: E402
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
        self.client.create(self.name, ["a", "b"])

    def totals(self) -> dict[str, int]:
        return {info.name: info.total_count for info in self.client.info(self.name)}

    def test_learns_and_answers(self) -> None:
        client = self.client
        client.train(self.name, "a", "good morning", "the weather is good")
        client.train(self.name, "b", b"hej och god morgon")
        client.add_class(self.name, "0", "1")
        client.remove_class(self.name, "1")
        self.assertEqual(client.classes(self.name), ["a", "b", "0"])
        known, unknown = client.classify_many(self.name, ["god morgon", "xyzzy"])
        self.assertEqual((known.best, known.text_coverage, unknown.text_coverage), ("b", 1.0, 0))
        self.assertEqual(known.probability, max(known.probabilities.values()))
        strengths = [word.probability for word in client.keywords(self.name, "god morning good morgon och")]
        self.assertGreater(len(set(strengths)), 1)
        self.assertEqual(strengths, sorted(strengths, reverse=True))
        client.untrain(self.name, "b", "hej och god morgon")
        self.assertEqual(self.totals()["b"], 0)
        client.remove(self.name)
        client.remove(self.name)
        self.assertRaises(ServerError, client.info, self.name)

    def test_write_sequence_is_all_or_nothing(self) -> None:
        def fail(w: WriteSequence) -> None:
            raise KeyError("of the caller's own")

        cases: list[tuple[Callable[[WriteSequence], None], int | None, type[Exception]]] = [
            (fail, None, KeyError),
            (lambda w: w.train("a\n", "four"), None, ValueError),
            (lambda w: w.train("c", "four"), None, ServerError),
            (lambda w: w.train("b", "four"), 10, ServerError),
        ]
        for case, max_size, error in cases:
            with self.subTest(error=error, max_size=max_size):
                with self.assertRaises(error), self.client.write(self.name, max_size=max_size) as w:
                    w.train("a", "three")
                    case(w)
                self.assertEqual(self.totals(), {"a": 0, "b": 0})
        with self.client.write(self.name) as w:
            w.train("a", "three")
            self.assertEqual(self.totals()["a"], 0, "nothing has been sent yet")
        self.assertEqual(self.totals()["a"], 1)
        with self.assertRaisesRegex(ValueError, "has ended"):
            w.train("a", "late")
        with self.assertRaisesRegex(ValueError, "has ended"), w:
            pass
        with self.client.write("nothing is sent for no calls"):
            pass

    def test_failures_name_the_call(self) -> None:
        def second_train() -> None:
            with self.client.write(self.name) as w:
                w.add_class("d")
                w.train("a", "x")
                w.train("c <&>", "x")

        train = f"train in '{self.name}', class 'a'"
        cases: list[tuple[Callable[[], object], int, int | None, str, str]] = [
            (lambda: self.client.classify("gone", "x"), 4000, 0, "classify in 'gone'", "could not be found"),
            (second_train, 4000, 2, f"train 2 of 2 in '{self.name}', class 'c <&>'", "'c <&>'"),
            (lambda: self.client.train(self.name, "a", "x" * 300_000), 4013, 0, train, "maximum input size"),
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
        carried = [" ", "&<>\"'", "a  b", "日本語", "😀", "\x85\xa0", "é" * 128, "]]>", "&#6;"]
        self.client.add_class(self.name, *carried)
        self.assertEqual(self.client.classes(self.name)[2:], carried)
        self.client.train(self.name, "日本語", "x")
        self.assertEqual(self.client.classify(self.name, "x").best, "日本語")
        refused = [
            ("", "is empty"),
            ("a\tb", r"character 1 .*U\+0009, is a control character"),
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
        for name in ["", ".x", "a/b", "a\\b", "c:d", "*", "?", '"', "<", "|", "a\n", "x" * 129]:
            with self.subTest(name), self.assertRaises(ValueError):
                self.client.create(name)

    def test_texts_of_any_characters_and_bytes(self) -> None:
        texts: list[str | bytes] = ["", "\0]]> <&\r\n\t\ufffe", "räksmörgås 日本語 😀", bytes(range(256))]
        for text in texts:
            with self.subTest(text):
                self.client.train(self.name, "a", text)
                self.client.untrain(self.name, "a", text)
                self.assertEqual(self.totals()["a"], 0)
        # The server sees the same bytes, however they were given.
        self.client.train(self.name, "a", "blåbär")
        self.assertEqual(self.client.classify(self.name, "blåbär".encode()).text_coverage, 1)
        with self.assertRaisesRegex(ValueError, "character 2 of the text is U\\+DC80, half of a surrogate"):
            self.client.train(self.name, "a", "xy\udc80")
        with self.assertRaisesRegex(TypeError, "not a single text"):
            self.client.classify_many(self.name, "abc")


class StrangerTest(unittest.TestCase):
    """Peers that are no Morvane Server, or one in trouble."""

    def failure(self, answer: str | None, timeout: float = 60) -> MorvaneError:
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
                            connection.sendall(answer.encode("latin-1"))
                        except OSError:
                            pass

            thread = threading.Thread(target=serve)
            thread.start()
            client = Client(port=listener.getsockname()[1], timeout=timeout, max_answer=100_000)
            try:
                with self.assertRaises(MorvaneError) as caught:
                    client.classify("c", "x")
            finally:
                done.set()
                thread.join()
        return caught.exception

    def test_answers_that_are_none(self) -> None:
        success = ANSWER + '<status success="true" statusCode="2000"/>'
        classify = '<classify id="0"><classification textCoverage="1"><class className="a" p="{}"/>{}'
        read = success + f"<readCalls>{classify}</classification></classify></readCalls></morvane>"
        bomb = '<!DOCTYPE m [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;">]>'
        cases = [
            ("HTTP/1.1 400 Bad Request\r\n\r\n", "can't be read as XML"),
            ("\xff\xfe<\0m\0", "can't be read as XML"),
            (bomb + success + "</morvane>", "DOCTYPE"),
            ("<html/>", "not of a Morvane Server"),
            (ANSWER + "</morvane>", "not of a Morvane Server"),
            (success + "</morvane>", "doesn't answer the calls"),
            (read.format(0.5, "").replace('id="0"', 'id="1"'), "doesn't answer the calls"),
            (read.format("much", ""), "unexpected form"),
            (read.format(0.5, "<class/>"), "unexpected form"),
            (ANSWER + '<status success="false"/></morvane>', "no status code"),
            (read.format(0.5, " " * 100_000), "larger than max_answer"),
        ]
        for answer, words in cases:
            with self.subTest(answer[:200]):
                error = self.failure(answer)
                self.assertIsInstance(error, BadAnswerError)
                self.assertRegex(str(error), f"^classify in 'c': .*{words}")

    def test_no_answer_says_whether_the_request_may_have_run(self) -> None:
        for answer, timeout, words in [("", 60.0, "without an answer"), (None, 2.0, "within 2 seconds")]:
            error = self.failure(answer, timeout)
            self.assertIn(words, str(error))
            self.assertTrue(isinstance(error, NoAnswerError) and error.may_have_run)
        with socket.socket() as nobody, socket.create_server(("127.0.0.1", 0)) as deaf:
            nobody.bind(("127.0.0.1", 0))  # and doesn't listen
            for peer, words in [(nobody, "refused"), (deaf, "within 0.5 seconds")]:
                with self.assertRaisesRegex(NoAnswerError, f"train in 'c', class 'a': .*{words}") as caught:
                    # More than the system takes off our hands while nobody reads.
                    Client(port=peer.getsockname()[1], timeout=0.5).train("c", "a", b"x" * 30_000_000)
                self.assertFalse(caught.exception.may_have_run)

    def test_failure_without_words_or_with_a_call_that_nobody_made(self) -> None:
        status = '<status success="false" statusCode="{}">{}</status></morvane>'
        for code, text in [(5030, ""), (4000, "No.\nCall id: 7\nReadCall: classify\n")]:
            error = self.failure(ANSWER + status.format(code, text))
            assert isinstance(error, ServerError)
            self.assertEqual((error.status_code, error.index, error.message), (code, 0, text.strip()))


if __name__ == "__main__":
    unittest.main()
