#!/usr/bin/env python3
"""An SQLite database as a read-only tree: a folder for each table and view, with its definition and its rows.

    TABLE/definition.sql     what made it
    TABLE/rows.csv           all rows, with a line of names
    TABLE/rows/KEY.json      each row of a table with one primary key, under that

The database is the file named by KEMVI_REPO_ROOT. What others write into it is seen within a second.
"""
import csv
import io
import json
import os
import sqlite3
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

from kemvi_helper import Entry, OpenFlags, PosixError, Stat, serve


def quoted(name: str) -> str:
    return '"' + name.replace('"', '""') + '"'


class Database:
    """What is made of the database is kept until somebody changes it."""

    def __init__(self, file: str) -> None:
        self.connection = sqlite3.connect(f"{Path(file).absolute().as_uri()}?mode=ro", uri=True)
        self.connection.row_factory = sqlite3.Row
        self.connection.execute("SELECT count(*) FROM sqlite_master")  # finds out whether it is a database
        self.files = [Path(file), Path(file + "-wal")]
        self.state: object = None
        self.kept: dict[str, bytes] = {}
        self.modified_at = 0.0

    def look(self) -> None:
        """Before each answer: forgets what is out of date, and finds the time of the last change."""
        state = (self.connection.execute("PRAGMA data_version").fetchone()[0],
                 *(file.stat().st_mtime_ns for file in self.files if file.exists()))
        if state != self.state:
            self.state, self.kept = state, {}
            self.modified_at = max(state[1:]) / 1e9

    def tables(self) -> dict[str, str]:
        """The definitions by name; what cannot be a file's name is left out."""
        rows = self.connection.execute("SELECT name, sql FROM sqlite_master WHERE type IN ('table', 'view')")
        return {name: sql or "" for name, sql in rows if "/" not in name and name not in ("", ".", "..")}

    def key_of(self, table: str) -> str | None:
        """The column that a row is known by."""
        columns = self.connection.execute(f"PRAGMA table_info({quoted(table)})")
        keys = [column["name"] for column in columns if column["pk"]]
        return keys[0] if len(keys) == 1 else None

    def row_names(self, table: str) -> Iterator[str]:
        key = self.key_of(table)
        if key is not None:
            for (value,) in self.connection.execute(f"SELECT {quoted(key)} FROM {quoted(table)}"):
                name = f"{value}.json"
                if isinstance(value, (int, str)) and not {"/", "\0"} & set(name) and len(name.encode()) < 256:
                    yield name

    def members(self, path: str) -> list[tuple[str, bool]]:
        """Names, and whether each is a folder. Raises ENOENT for a folder that there is not."""
        match path.split("/")[1:]:
            case [""]:
                return [(table, True) for table in self.tables()]
            case [table] if table in self.tables():
                rows = [("rows", True)] if self.key_of(table) is not None else []
                return [("definition.sql", False), ("rows.csv", False), *rows]
            case [table, "rows"] if table in self.tables() and self.key_of(table) is not None:
                return [(name, False) for name in dict.fromkeys(self.row_names(table))]
        raise PosixError("ENOENT", f"there is no folder {path}")

    def contents(self, path: str) -> bytes:
        """Raises ENOENT when there is no such file."""
        if path not in self.kept:
            self.kept[path] = self.made(path)
        return self.kept[path]

    def made(self, path: str) -> bytes:
        match path.split("/")[1:]:
            case [table, "definition.sql"] if table in self.tables():
                return f"{self.tables()[table]};\n".encode()
            case [table, "rows.csv"] if table in self.tables():
                rows = self.connection.execute(f"SELECT * FROM {quoted(table)}")
                text = io.StringIO()
                csv.writer(text, lineterminator="\n").writerows([[column[0] for column in rows.description], *rows])
                return text.getvalue().encode()
            case [table, "rows", name] if table in self.tables() and name.endswith(".json"):
                key = self.key_of(table)
                if key is not None:
                    query = f"SELECT * FROM {quoted(table)} WHERE CAST({quoted(key)} AS TEXT) = ?"
                    row = self.connection.execute(query, (name.removesuffix(".json"),)).fetchone()
                    if row is not None:
                        return (json.dumps(dict(row), ensure_ascii=False, indent=2, default=repr) + "\n").encode()
        raise PosixError("ENOENT", f"there is no {path}")

    # What the kit calls

    def getattr(self, path: str) -> Stat:
        self.look()
        return self.stat(path)

    def stat(self, path: str) -> Stat:
        try:
            return Stat(size=len(self.contents(path)), modified_at=self.modified_at)
        except PosixError:
            self.members(path)
            return Stat(is_directory=True, modified_at=self.modified_at)

    def readdir(self, path: str) -> Iterator[Entry]:
        self.look()
        for name, is_folder in self.members(path):
            size = None if is_folder else len(self.contents(f"{path.rstrip('/')}/{name}"))
            yield Entry(name, is_directory=is_folder, size=size, modified_at=self.modified_at)

    def open(self, path: str, flags: OpenFlags) -> bytes:
        self.look()
        if self.stat(path).is_directory:
            raise PosixError("EISDIR", f"{path} is a folder")
        return self.contents(path)

    def read(self, file: bytes, offset: int, length: int) -> bytes:
        return file[offset:offset + length]


def main() -> Any:
    try:
        tree = Database(os.environ.get("KEMVI_REPO_ROOT", ""))
    except sqlite3.Error as error:
        return f"database: KEMVI_REPO_ROOT must name an SQLite database: {error}"
    return serve(tree)


if __name__ == "__main__":
    sys.exit(main())
