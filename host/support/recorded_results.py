"""Runs a file of tests so that scripts/count-test-cases can add its cases up."""

import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path


def run_recorded(results: Path) -> None:
    """Runs the tests of the main module, writes how each case ended into the file, and ends the program."""

    class Recorded(unittest.TextTestResult):
        def startTestRun(self) -> None:
            self.seen: list[unittest.TestCase] = []
            super().startTestRun()

        def startTest(self, test: unittest.TestCase) -> None:
            self.seen.append(test)
            super().startTest(test)

        def stopTestRun(self) -> None:
            super().stopTestRun()
            suite = ElementTree.Element("testsuite", name=results.stem)
            for test in self.seen:
                case = ElementTree.SubElement(suite, "testcase", name=test.id())
                if any(test is failed for failed, _ in self.failures + self.errors):
                    ElementTree.SubElement(case, "failure")
            results.parent.mkdir(exist_ok=True)
            ElementTree.ElementTree(suite).write(results, encoding="unicode")

    unittest.main(testRunner=unittest.TextTestRunner(verbosity=2, resultclass=Recorded))
