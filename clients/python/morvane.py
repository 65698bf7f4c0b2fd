"""Client of Morvane Server: tells texts apart by classifiers that learn while they serve.

One file, the standard library only, Python 3.11 and later. Copy it beside your program.

    from morvane import Client

    client = Client("127.0.0.1", 9400)
    client.create("langs", ["english", "swedish"])
    with client.write("langs") as w:                 # one write sequence: all of it, or nothing
        w.train("english", "hello and good morning")
        w.train("swedish", "hej och god morgon")
    print(client.classify("langs", "god morgon, alla").best)      # swedish

A `str` is sent as its bytes in UTF-8, and `bytes` as they are. Texts travel in Base64, so every character and
every byte is allowed in a text. Names stand in XML, which can't carry all: one that the server couldn't store
or tell back as it was given is refused here, before anything is sent, with a ValueError that says why.

A request that fails raises a MorvaneError:

    ServerError         the server refused or failed: .status_code, .message, .call; nothing was changed
    NoAnswerError       no server there, or no answer in time; .may_have_run: a write may have taken effect
    BadAnswerError      what came back was no answer of a Morvane Server, or longer than `max_answer`

A Client keeps no connection and no state between calls, so threads may share one.
"""

from __future__ import annotations

import base64
import re
import socket
import time
from collections.abc import Callable, Iterable, Sequence
from dataclasses import dataclass
from types import TracebackType
from typing import NoReturn, TypeVar
from xml.etree import ElementTree

__all__ = [
    "BadAnswerError",
    "ClassInfo",
    "Classification",
    "Client",
    "Keyword",
    "MorvaneError",
    "NoAnswerError",
    "ServerError",
    "WriteSequence",
]

Text = str | bytes

_T = TypeVar("_T")

# The most texts, and the most calls of a kind, that a request may hold.
MAX_CALLS = 100_000

_REQUEST_NAMESPACE = "http://morvane.example/1/server/RequestSchema"
_RESPONSE = "{http://morvane.example/1/server/ResponseSchema}"
_HEAD = b'<?xml version="1.0" encoding="utf-8" ?>\n'
_ROOT = f'<morvane xmlns="{_REQUEST_NAMESPACE}" version="1.01">\n'.encode()
# Nothing behind the end tag: so a request that lacks its last byte is no document and can't run.
_TAIL = b"</morvane>"
_BLOCK = 1 << 16


class MorvaneError(Exception):
    """Any failure of a request. `call` names what failed, in words for a person."""

    def __init__(self, call: str, text: str) -> None:
        super().__init__(f"{call}: {text}")
        self.call = call


class ServerError(MorvaneError):
    """The server answered that it didn't do what was asked. Nothing was changed.

    status_code   4000 the request is at fault; 4013 it is larger than the server's `maxInput`: send less at
                  once; 5000 the server failed, its log tells why; 5030 its memory ran out: try again later
    message       the server's words, which may be empty
    call          the call that failed, "train 2 of 3 in 'langs', class 'swedish'"; the request as a whole if
                  the server blames no single call
    index         the place of that call in its sequence, from 0, or None
    """

    def __init__(self, call: str, status_code: int, message: str, index: int | None) -> None:
        super().__init__(call, f"{status_code} {message}".rstrip())
        self.status_code = status_code
        self.message = message
        self.index = index


class NoAnswerError(MorvaneError):
    """The server couldn't be reached, or broke off, or didn't answer in time.

    may_have_run is False if the request can't have arrived whole. If it is True, a write may have taken
    effect: look with info() before you repeat it, since a text that is trained twice counts twice.
    """

    def __init__(self, call: str, text: str, may_have_run: bool) -> None:
        super().__init__(call, text)
        self.may_have_run = may_have_run


class BadAnswerError(MorvaneError):
    """What came back can't be read as an answer. A write may have taken effect."""


@dataclass(frozen=True, slots=True)
class Classification:
    """The answer of classify().

    probabilities   of each class, in byte order of their names; they sum up to 1
    text_coverage   the share of the text's features that the classifier knows, 0 to 1. A low one says: don't
                    trust the probabilities
    """

    probabilities: dict[str, float]
    text_coverage: float

    @property
    def best(self) -> str:
        """The most probable class; of several, the first."""
        return max(self.probabilities, key=self.probabilities.__getitem__)

    @property
    def probability(self) -> float:
        """The probability of the best class."""
        return self.probabilities[self.best]


@dataclass(frozen=True, slots=True)
class Keyword:
    """A word of a text that speaks for a class. One of 30 bytes stands for all words that begin so."""

    word: str
    class_name: str
    probability: float


@dataclass(frozen=True, slots=True)
class ClassInfo:
    """A class and what it has learned: distinct features, and occurrences of features."""

    name: str
    unique_features: int
    total_count: int


@dataclass(frozen=True, slots=True)
class _Call:
    operation: str
    classifier: str
    class_name: str | None = None
    text: bytes | None = None

    def __str__(self) -> str:
        of_class = "" if self.class_name is None else f", class {self.class_name!r}"
        return f"{self.operation} in {self.classifier!r}{of_class}"


class WriteSequence:
    """Calls that change one classifier and take effect together or not at all. Made by Client.write().

    They are collected here and sent as one request when the block ends. If the block is left by an exception,
    nothing is sent. Calls run in the order in which they were made. A sequence without calls sends nothing.
    """

    def __init__(self, client: Client, classifier: str, max_size: int | None = None) -> None:
        self._client = client
        self._classifier = _checked_classifier(classifier)
        self._max_size = max_size
        self._calls: list[_Call] = []
        self._size = 0
        self._ended = False

    def create(self) -> None:
        """Makes the classifier. Refused by the server if it exists."""
        self._add("create")

    def remove(self) -> None:
        """Removes the classifier, if there is one. No other call can use it behind this one."""
        self._add("remove")

    def add_class(self, class_name: str) -> None:
        self._add("addClass", class_name)

    def remove_class(self, class_name: str) -> None:
        """Removes a class with all that it has learned."""
        self._add("removeClass", class_name)

    def train(self, class_name: str, text: Text) -> None:
        """Teaches the class the text."""
        self._add("train", class_name, text)

    def untrain(self, class_name: str, text: Text) -> None:
        """Takes back what train() did with the same text."""
        self._add("untrain", class_name, text)

    def __len__(self) -> int:
        """The number of calls so far. A request holds at most MAX_CALLS."""
        return len(self._calls)

    @property
    def size(self) -> int:
        """About how many bytes the request has so far; the server refuses more than its `maxInput`."""
        return self._size

    def __enter__(self) -> WriteSequence:
        # What it has collected was sent, or given up.
        if self._ended:
            raise ValueError("this write sequence has ended; begin another with client.write()")
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._ended = True
        if kind is None and self._calls:
            self._client._exchange(self._calls, writes=True, max_size=self._max_size)

    def _add(self, operation: str, class_name: str | None = None, text: Text | None = None) -> None:
        if self._ended:
            raise ValueError("this write sequence has ended; begin another with client.write()")
        if len(self._calls) == MAX_CALLS:
            raise ValueError(f"a request holds at most {MAX_CALLS:,} calls; begin another write sequence")
        call = _Call(
            operation,
            self._classifier,
            None if class_name is None else _checked_class(class_name),
            None if text is None else _bytes_of(text),
        )
        self._calls.append(call)
        base64_size = 0 if call.text is None else 4 * (len(call.text) // 3 + 1)
        self._size += 120 + len(class_name or "") + base64_size


class Client:
    """Talks to the server at `host` and `port`, with a new connection for each request.

    timeout      seconds for a whole request, from connecting to the last byte of the answer; None: no limit
    max_answer   the most bytes of an answer. Answers are parsed in memory, where they take ten times their
                 size, and forty if somebody means ill, so this bounds the client's memory; ask for fewer
                 texts at once if it isn't enough
    """

    def __init__(
        self,
        host: str = "127.0.0.1",
        port: int = 9400,
        *,
        timeout: float | None = 120.0,
        max_answer: int = 64 << 20,
    ) -> None:
        self.host = host
        self.port = port
        self.timeout = timeout
        self.max_answer = max_answer

    def __repr__(self) -> str:
        return f"Client({self.host!r}, {self.port})"

    # Changes. Each is a write sequence of its own, and each write sequence writes the whole file of its
    # classifier: gather what belongs together in one.

    def write(self, classifier: str, *, max_size: int | None = None) -> WriteSequence:
        """A write sequence, to be used as a context manager.

            with client.write("langs") as w:
                w.add_class("danish")
                for text in texts:
                    w.train("danish", text)

        With max_size, training is refused once the stored classifier has that many bytes or more.
        """
        return WriteSequence(self, classifier, max_size)

    def create(self, classifier: str, classes: Iterable[str] = ()) -> None:
        """Makes a classifier, with these classes if any are given.

            client.create("langs", ["english", "swedish"])
        """
        with self.write(classifier) as w:
            w.create()
            for class_name in _several(classes):
                w.add_class(class_name)

    def remove(self, classifier: str) -> None:
        """Removes a classifier with all that it has learned. Succeeds if there is none."""
        with self.write(classifier) as w:
            w.remove()

    def add_class(self, classifier: str, *class_names: str) -> None:
        """Adds classes.

            client.add_class("langs", "danish", "norwegian")
        """
        with self.write(classifier) as w:
            for class_name in class_names:
                w.add_class(class_name)

    def remove_class(self, classifier: str, *class_names: str) -> None:
        """Removes classes with all that they have learned."""
        with self.write(classifier) as w:
            for class_name in class_names:
                w.remove_class(class_name)

    def train(self, classifier: str, class_name: str, *texts: Text) -> None:
        """Teaches a class some texts.

            client.train("langs", "swedish", "hej hopp", "god morgon")
        """
        with self.write(classifier) as w:
            for text in texts:
                w.train(class_name, text)

    def untrain(self, classifier: str, class_name: str, *texts: Text) -> None:
        """Takes back what train() did with the same texts."""
        with self.write(classifier) as w:
            for text in texts:
                w.untrain(class_name, text)

    # Questions.

    def classify(self, classifier: str, text: Text) -> Classification:
        """The probability of each class for a text.

            answer = client.classify("langs", "god morgon")
            print(answer.best, answer.probability, answer.text_coverage)
        """
        return self.classify_many(classifier, [text])[0]

    def classify_many(self, classifier: str, texts: Iterable[Text]) -> list[Classification]:
        """The same for several texts in one request, which is far quicker than one by one."""
        return self._read("classify", classifier, texts, _classification)

    def keywords(self, classifier: str, text: Text) -> list[Keyword]:
        """Up to 30 words of a text that speak most strongly for a class, the strongest first.

            for keyword in client.keywords("langs", "god morgon"):
                print(keyword.word, keyword.class_name, keyword.probability)
        """
        (found,) = self._read("classifyKeywords", classifier, [text], _keywords)
        return sorted(found, key=lambda keyword: (-keyword.probability, keyword.word))

    def info(self, classifier: str) -> list[ClassInfo]:
        """The classes, in the order in which they were added, and how much each has learned."""
        call = _Call("getInformation", _checked_classifier(classifier))
        return _parsed(call, self._exchange([call], writes=False)[0], _class_infos)

    def classes(self, classifier: str) -> list[str]:
        """The names of the classes, in the order in which they were added."""
        return [info.name for info in self.info(classifier)]

    def _read(
        self,
        operation: str,
        classifier: str,
        texts: Iterable[Text],
        parse: Callable[[ElementTree.Element], _T],
    ) -> list[_T]:
        name = _checked_classifier(classifier)
        calls = [_Call(operation, name, text=_bytes_of(text)) for text in _several(texts)]
        if len(calls) > MAX_CALLS:
            raise ValueError(f"a request holds at most {MAX_CALLS:,} texts, and these are {len(calls):,}")
        if not calls:
            return []
        answers = self._exchange(calls, writes=False)
        return [_parsed(call, answer, parse) for call, answer in zip(calls, answers)]

    def _exchange(
        self, calls: Sequence[_Call], *, writes: bool, max_size: int | None = None
    ) -> list[ElementTree.Element]:
        """Sends one request with these calls. Gives the element of each call in the answer."""
        whole = _whole(calls)
        answer = self._ask(_request(calls, writes, max_size), whole)
        try:
            text = answer.decode("utf-8")
            if "<!DOCTYPE" in text:
                raise BadAnswerError(whole, "the answer has a DOCTYPE, which a Morvane Server never sends")
            root = ElementTree.fromstring(text)
        except (UnicodeDecodeError, ElementTree.ParseError, ValueError) as error:
            raise BadAnswerError(whole, f"the answer can't be read as XML: {error}") from None
        status = root.find(_RESPONSE + "status")
        if root.tag != _RESPONSE + "morvane" or status is None:
            raise BadAnswerError(whole, "the answer is XML, but not of a Morvane Server")
        if status.get("success") != "true":
            _fail(calls, whole, status)
        section = root.find(_RESPONSE + ("writeCalls" if writes else "readCalls"))
        found = [] if section is None else list(section)
        if [(e.tag, e.get("id")) for e in found] != [
            (_RESPONSE + call.operation, str(i)) for i, call in enumerate(calls)
        ]:
            raise BadAnswerError(whole, "the answer doesn't answer the calls of the request")
        return found

    def _ask(self, request: bytes, whole: str) -> bytes:
        """Sends the bytes of a request and gives those of the answer."""
        deadline = None if self.timeout is None else time.monotonic() + self.timeout

        def left() -> float | None:
            if deadline is None:
                return None
            # A socket takes 0 for "don't wait at all" and fails in other words.
            return max(deadline - time.monotonic(), 0.000001)

        sent = False
        try:
            with socket.create_connection((self.host, self.port), timeout=left()) as connection:
                connection.settimeout(left())
                connection.sendall(request)
                # This, and nothing else, is what ends a request. It can arrive even if this call fails.
                sent = True
                connection.shutdown(socket.SHUT_WR)
                blocks: list[bytes] = []
                size = 0
                while True:
                    connection.settimeout(left())
                    block = connection.recv(_BLOCK)
                    if not block:
                        break
                    size += len(block)
                    if size > self.max_answer:
                        limit = f"{self.max_answer:,} bytes"
                        raise BadAnswerError(whole, f"the answer is larger than max_answer, {limit}")
                    blocks.append(block)
        except TimeoutError:
            text = f"no answer of {self.host}:{self.port} within {self.timeout:g} seconds"
            raise NoAnswerError(whole, text, sent) from None
        except (OSError, UnicodeError, OverflowError) as error:
            text = f"the connection to {self.host}:{self.port} failed: {getattr(error, 'strerror', None) or error}"
            raise NoAnswerError(whole, text, sent) from None
        if not blocks:
            text = f"{self.host}:{self.port} ended the connection without an answer"
            raise NoAnswerError(whole, text, True)
        return b"".join(blocks)


# Requests.


def _request(calls: Sequence[_Call], writes: bool, max_size: int | None) -> bytes:
    texts: list[bytes] = []
    lines: list[str] = []
    for i, call in enumerate(calls):
        attributes = f'id="{i}"'
        if not writes:
            attributes += f' classifierName="{_escaped(call.classifier)}"'
        if call.class_name is not None:
            attributes += f' className="{_escaped(call.class_name)}"'
        if call.text is not None:
            attributes += f' textId="{i}"'
            texts.append(b'<textBase64 id="%d">%b</textBase64>\n' % (i, base64.b64encode(call.text)))
        lines.append(f"<{call.operation} {attributes}/>\n")
    if writes:
        limit = "" if max_size is None else f' maxSize="{max_size}"'
        lines.insert(0, f'<writeCalls classifierName="{_escaped(calls[0].classifier)}"{limit}>\n')
        lines.append("</writeCalls>\n")
    else:
        lines.insert(0, "<readCalls>\n")
        lines.append("</readCalls>\n")
    if texts:
        texts.insert(0, b"<texts>\n")
        texts.append(b"</texts>\n")
    return b"".join([_HEAD, _ROOT, *texts, "".join(lines).encode(), _TAIL])


def _escaped(name: str) -> str:
    return name.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;").replace('"', "&quot;")


def _several(values: Iterable[_T]) -> Iterable[_T]:
    # A str is an iterable of str too, of its characters, and nobody means those.
    if isinstance(values, (str, bytes)):
        raise TypeError("a list is needed here, not a single text")
    return values


def _bytes_of(text: Text) -> bytes:
    if isinstance(text, bytes):
        return text
    try:
        return text.encode("utf-8")
    except UnicodeEncodeError as error:
        raise ValueError(
            f"character {error.start} of the text is U+{ord(text[error.start]):04X}, half of a surrogate "
            "pair, which UTF-8 can't carry; decode the text properly, or give its bytes"
        ) from None


def _checked_class(name: str) -> str:
    if not name:
        raise ValueError("the class name is empty")
    return _checked("class", name, 256, "")


def _checked_classifier(name: str) -> str:
    if not name:
        raise ValueError("the classifier name is empty")
    if name.startswith("."):
        raise ValueError(f"the classifier name {name!r} begins with a dot, which the server refuses")
    return _checked("classifier", name, 128, '/\\:*?"<>|')


def _checked(kind: str, name: str, most: int, forbidden: str) -> str:
    for i, character in enumerate(name):
        number = ord(character)
        reason = ""
        if number < 0x20 or number == 0x7F:
            reason = "a control character"
        elif 0xD800 <= number <= 0xDFFF:
            reason = "half of a surrogate pair, which UTF-8 can't carry"
        elif number in (0xFFFE, 0xFFFF):
            reason = "none that XML can carry, so an answer couldn't name it"
        elif character in forbidden:
            reason = f"one of {' '.join(forbidden)}"
        if reason:
            raise ValueError(f"character {i} of the {kind} name {name!r}, U+{number:04X}, is {reason}")
    size = len(name.encode("utf-8"))
    if size > most:
        raise ValueError(f"the {kind} name {name[:20]!r}... has {size} bytes in UTF-8, more than {most}")
    return name


# Answers.

_WHERE = re.compile(r"^Call id: (\d+)\n(?:Read|Write)Call: \w+$", re.MULTILINE)


def _whole(calls: Sequence[_Call]) -> str:
    return str(calls[0]) if len(calls) == 1 else f"{len(calls)} calls in {calls[0].classifier!r}"


def _fail(calls: Sequence[_Call], whole: str, status: ElementTree.Element) -> NoReturn:
    message = (status.text or "").strip()
    try:
        code = int(status.get("statusCode", ""))
    except ValueError:
        raise BadAnswerError(whole, "the answer has no status code") from None
    # The server tells the call only in the words of its message. Names can't hold line ends, so none imitates
    # these two lines.
    blamed = [int(number) for number in _WHERE.findall(message)]
    if not blamed or blamed[-1] >= len(calls):
        raise ServerError(whole, code, message, 0 if len(calls) == 1 else None)
    index = blamed[-1]
    call = calls[index]
    if len(calls) > 1:
        same = [i for i, other in enumerate(calls) if other.operation == call.operation]
        where = str(call).replace(" ", f" {same.index(index) + 1} of {len(same)} ", 1)
    else:
        where = str(call)
    raise ServerError(where, code, message, index)


def _parsed(call: _Call, answer: ElementTree.Element, parse: Callable[[ElementTree.Element], _T]) -> _T:
    try:
        return parse(answer)
    except (LookupError, ValueError, TypeError) as error:
        raise BadAnswerError(str(call), f"the answer has an unexpected form: {error!r}") from None


def _classification(answer: ElementTree.Element) -> Classification:
    (classification,) = answer
    probabilities = {entry.attrib["className"]: float(entry.attrib["p"]) for entry in classification}
    return Classification(probabilities, float(classification.attrib["textCoverage"]))


def _keywords(answer: ElementTree.Element) -> list[Keyword]:
    (words,) = answer
    return [Keyword(word.text or "", word.attrib["className"], float(word.attrib["p"])) for word in words]


def _class_infos(answer: ElementTree.Element) -> list[ClassInfo]:
    (classes,) = answer
    return [
        ClassInfo(
            entry.attrib["className"],
            int(entry.findtext(_RESPONSE + "uniqueFeatures", "")),
            int(entry.findtext(_RESPONSE + "totalCount", "")),
        )
        for entry in classes
    ]
