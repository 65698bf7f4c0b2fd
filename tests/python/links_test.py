"""Every link from one page of the documentation to another, or to a heading, leads somewhere."""

from __future__ import annotations

import os
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LINK = re.compile(r"\]\((?!\w+:)([^)#\s]*)(?:#([^)\s]+))?\)")


def anchors(page: pathlib.Path) -> set[str]:
    """The anchors that a page's headings get where it is shown."""
    headings = re.findall(r"^#+ (.*)$", page.read_text("utf-8"), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


class LinksTest(unittest.TestCase):
    def test_every_link_leads_somewhere(self) -> None:
        folders = [ROOT, *(ROOT / name for name in ["clients", "docs", "examples", "packaging"])]
        pages = [page for folder in folders for page in folder.glob("*.md" if folder == ROOT else "**/*.md")]
        links = [(page, *link) for page in pages for link in LINK.findall(page.read_text("utf-8"))]
        self.assertGreater(len(links), 50)
        for page, target, anchor in links:
            with self.subTest(f"{page.relative_to(ROOT)}: {target}#{anchor}"):
                aim = pathlib.Path(os.path.normpath(page.parent / target)) if target else page
                self.assertTrue(aim.exists())
                self.assertTrue(not anchor or anchor in anchors(aim))


if __name__ == "__main__":
    unittest.main()
