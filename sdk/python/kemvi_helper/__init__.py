"""Write a file system that Kemvi mounts, without knowing the protocol: `serve(file_system)`."""
from .changed import changed
from .errors import PosixError
from .file_system import Entry, FileSystem, OpenFlags, Stat, WritableFileSystem
from .local import LocalFileSystem
from .serve import serve, serve_async

__all__ = [
    "Entry", "FileSystem", "LocalFileSystem", "OpenFlags", "PosixError", "Stat", "WritableFileSystem", "changed", "serve",
    "serve_async",
]
