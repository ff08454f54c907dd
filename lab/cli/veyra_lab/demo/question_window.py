"""The question as a window: question_window.py CAMERA-VERSION IMAGE-VERSION prints "update" or "not now".

A program of its own, so that any Python with tkinter can run it. With --check it only tries whether a window can be
opened: exit status 0 when it can, 1 with a line on standard error that says what is missing.
"""

import sys

try:
    import tkinter
    from tkinter import font
except ImportError:
    sys.exit("tkinter is missing: apt-get install python3-tk")

TITLE = "Camera firmware update"
_WIDTH = 420
_HEIGHT = 190
_MARGIN = 24
_PAPER = "#ffffff"
_INK = "#1b1f24"
_SOFT = "#5b6673"
_ACCENT = "#2563c9"
_QUIET = "#e6eaef"


class QuestionWindow:
    """Two texts and two buttons. Closing it or the Escape key means "not now"."""

    def __init__(self, root: tkinter.Tk, camera_version: str, image_version: str) -> None:
        self.answer = "not now"
        self._root = root
        root.title(TITLE)
        root.configure(background=_PAPER)
        root.resizable(False, False)
        # Where a desktop shows its notices: at the lower right.
        left = root.winfo_screenwidth() - _WIDTH - _MARGIN
        top = root.winfo_screenheight() - _HEIGHT - 3 * _MARGIN
        root.geometry(f"{_WIDTH}x{_HEIGHT}+{max(0, left)}+{max(0, top)}")
        family = font.nametofont("TkDefaultFont").actual("family")
        self._text("Update the camera's firmware?", (family, 15, "bold"), _INK, (18, 4))
        self._text(f"Now on the camera: {camera_version}", (family, 11), _SOFT, (0, 0))
        self._text(f"To be installed: {image_version}", (family, 11), _SOFT, (0, 0))
        buttons = tkinter.Frame(root, background=_PAPER)
        buttons.pack(side="bottom", fill="x", padx=16, pady=16)
        self._button(buttons, "Not now", "not now", _QUIET, _INK, (family, 11))
        self._button(buttons, "Update", "update", _ACCENT, "#ffffff", (family, 11, "bold")).focus_set()
        root.bind("<Escape>", lambda _: root.destroy())
        root.attributes("-topmost", True)

    def _text(
        self, words: str, kind: tuple[str, int] | tuple[str, int, str], ink: str, space: tuple[int, int]
    ) -> None:
        label = tkinter.Label(
            self._root, text=words, font=kind, foreground=ink, background=_PAPER, anchor="w"
        )
        label.pack(fill="x", padx=20, pady=space)

    def _button(
        self,
        parent: tkinter.Frame,
        words: str,
        answer: str,
        paper: str,
        ink: str,
        kind: tuple[str, int] | tuple[str, int, str],
    ) -> tkinter.Button:
        def choose() -> None:
            self.answer = answer
            self._root.destroy()

        button = tkinter.Button(
            parent,
            text=words,
            command=choose,
            font=kind,
            background=paper,
            foreground=ink,
            activebackground=paper,
            activeforeground=ink,
            relief="flat",
            borderwidth=0,
            highlightthickness=2,
            highlightbackground=_PAPER,
            highlightcolor=_INK,
            pady=8,
        )
        button.pack(side="left", expand=True, fill="x", padx=4)
        button.bind("<Return>", lambda _: choose())
        return button


def main() -> int:
    """The exit status."""
    try:
        root = tkinter.Tk()
    except tkinter.TclError as error:
        print(f"the display cannot be used: {error}", file=sys.stderr)
        return 1
    if sys.argv[1:] == ["--check"]:
        root.destroy()
        return 0
    if len(sys.argv) != 3:
        print("usage: question_window.py --check | CAMERA-VERSION IMAGE-VERSION", file=sys.stderr)
        return 2
    window = QuestionWindow(root, sys.argv[1], sys.argv[2])
    root.mainloop()
    print(window.answer)
    return 0


if __name__ == "__main__":
    sys.exit(main())
