#!/usr/bin/env python3
"""The best loop that can be written by hand in Python, for six operations and nothing else: no checks, no errors, no other
operations. What the kit's loop for Python is measured against."""
import binascii
import json
import os
import stat
from datetime import datetime

root = os.environ["KEMVI_REPO_ROOT"]
decode = json.JSONDecoder().decode


def stat_text(path, name):
    found = os.lstat(root + path)
    time = datetime.utcfromtimestamp(found.st_mtime).isoformat(timespec="milliseconds")
    kind = "true" if stat.S_ISDIR(found.st_mode) else "false"
    return f'{{"path":"{path}","name":"{name}","isDirectory":{kind},"size":{found.st_size},"modifiedAt":"{time}Z"}}'


def answer(line):
    if len(line) > 512:
        start = line.find(b'"dataBase64":"') + 14
        end = line.find(b'"', start)
        request = decode((line[:start] + line[end:]).decode())
        data = binascii.a2b_base64(line[start:end].replace(b"\\/", b"/"))
        os.pwrite(request["handle"], data, request["offset"])
        return f'{{"id":"{request["id"]}","ok":true}}\n'.encode()
    request = decode(line.decode())
    op = request["op"]
    if op == "read":
        data = os.pread(request["handle"], request["length"], request["offset"])
        head = f'{{"id":"{request["id"]}","ok":true,"dataBase64":"'.encode()
        return b"".join((head, binascii.b2a_base64(data, newline=False), b'"}\n'))
    result = ""
    if op == "getattr":
        path = request["path"]
        result = f',"result":{stat_text(path, path[path.rindex("/") + 1:])}'
    elif op == "readdir":
        path = request["path"]
        members = ",".join([stat_text(f"{path}/{name}", name) for name in os.listdir(root + path)])
        result = f',"result":[{members}]'
    elif op == "open":
        flags = os.O_RDWR | os.O_CREAT if "write" in request["flags"] else os.O_RDONLY
        result = f',"result":{{"handle":{os.open(root + request["path"], flags, 0o666)}}}'
    return f'{{"id":"{request["id"]}","ok":true{result}}}\n'.encode()


def main():
    rest = b""
    while chunk := os.read(0, 1 << 18):
        chunk = rest + chunk
        if chunk.find(b"\n") < 0:
            rest = chunk
            continue
        *lines, rest = chunk.split(b"\n")
        for line in lines:
            data = answer(line)
            done = os.write(1, data)
            while done < len(data):
                done += os.write(1, data[done:])


main()
