"""A helper in Python that shows one file, and notes how it was started in the file that its first argument names."""

import json
import os
import sys

STAMP = "2024-01-01T00:00:00.000Z"
TREE = {"/": {"isDirectory": True, "size": 0, "modifiedAt": STAMP},
        "/a.txt": {"isDirectory": False, "size": 0, "modifiedAt": STAMP}}

with open(sys.argv[1], "w", encoding="utf-8") as note:
    json.dump({"arguments": sys.argv[2:], "environment": dict(os.environ), "pid": os.getpid(), "parent": os.getppid(),
               "script": sys.argv[0]}, note)
for line in sys.stdin:
    request = json.loads(line)
    answer = {"id": request["id"], "ok": True}
    if request["op"] == "getattr" and request["path"] not in TREE:
        answer = {"id": request["id"], "ok": False, "error": {"code": "ENOENT", "message": "nothing there"}}
    elif request["op"] == "getattr":
        answer["result"] = {"path": request["path"], "name": os.path.basename(request["path"])} | TREE[request["path"]]
    elif request["op"] == "readdir":
        answer["result"] = [{"path": "/a.txt", "name": "a.txt"} | TREE["/a.txt"]]
    elif request["op"] == "statfs":
        answer["result"] = {"files": 1, "directories": 1, "bytes": 0}
    print(json.dumps(answer), flush=True)
