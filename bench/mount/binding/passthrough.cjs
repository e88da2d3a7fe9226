// A plain pass-through on the node binding fuse-native: node passthrough.cjs SOURCE MOUNTPOINT. With SYNC=1 it uses
// node's blocking calls wherever there is one.
const Fuse = require('fuse-native');
const fs = require('fs');
const path = require('path');

const [source, mountPoint] = process.argv.slice(2).map((argument) => path.resolve(argument));
const { O_CREAT, O_EXCL, O_DIRECT, O_APPEND, O_RDWR, O_TRUNC } = fs.constants;
const errnoOf = (error) => (error ? (typeof error.errno === 'number' ? error.errno : -5) : 0);
const real = (name) => source + name;
// Creation has its own operation, and appending is done by offsets.
const openFlags = (flags) => flags & ~(O_CREAT | O_EXCL | O_DIRECT | O_APPEND);
const replyWith = (reply) => (error, value) => reply(errnoOf(error), value);

const operations = {
    readdir: (name, reply) => fs.readdir(real(name), replyWith(reply)),
    getattr: (name, reply) => fs.lstat(real(name), replyWith(reply)),
    fgetattr: (name, file, reply) => fs.fstat(file, replyWith(reply)),
    readlink: (name, reply) => fs.readlink(real(name), replyWith(reply)),
    chmod: (name, mode, reply) => fs.chmod(real(name), mode, replyWith(reply)),
    chown: (name, uid, gid, reply) => fs.lchown(real(name), uid >>> 0, gid >>> 0, replyWith(reply)),
    utimens: (name, atime, mtime, reply) => fs.lutimes(real(name), atime / 1000, mtime / 1000, replyWith(reply)),
    truncate: (name, size, reply) => fs.truncate(real(name), size, replyWith(reply)),
    ftruncate: (name, file, size, reply) => fs.ftruncate(file, size, replyWith(reply)),
    open: (name, flags, reply) => fs.open(real(name), openFlags(flags), replyWith(reply)),
    create: (name, mode, reply) => fs.open(real(name), O_RDWR | O_CREAT | O_TRUNC, mode, replyWith(reply)),
    read: (name, file, into, length, offset, reply) =>
        fs.read(file, into, 0, length, offset, (error, count) => reply(error ? errnoOf(error) : count)),
    write: (name, file, from, length, offset, reply) =>
        fs.write(file, from, 0, length, offset, (error, count) => reply(error ? errnoOf(error) : count)),
    release: (name, file, reply) => fs.close(file, replyWith(reply)),
    fsync: (name, dataOnly, file, reply) => fs.fsync(file, replyWith(reply)),
    unlink: (name, reply) => fs.unlink(real(name), replyWith(reply)),
    rename: (from, to, reply) => fs.rename(real(from), real(to), replyWith(reply)),
    link: (from, to, reply) => fs.link(real(from), real(to), replyWith(reply)),
    symlink: (target, name, reply) => fs.symlink(target, real(name), replyWith(reply)),
    mkdir: (name, mode, reply) => fs.mkdir(real(name), mode, replyWith(reply)),
    rmdir: (name, reply) => fs.rmdir(real(name), replyWith(reply)),
};

/** Runs a blocking call and replies its value or its error. */
function replyNow(reply, call) {
    let value;
    try {
        value = call();
    } catch (error) {
        reply(errnoOf(error));
        return;
    }
    reply(0, value);
}

const blocking = {
    readdir: (name, reply) => replyNow(reply, () => fs.readdirSync(real(name))),
    getattr: (name, reply) => replyNow(reply, () => fs.lstatSync(real(name))),
    fgetattr: (name, file, reply) => replyNow(reply, () => fs.fstatSync(file)),
    chmod: (name, mode, reply) => replyNow(reply, () => fs.chmodSync(real(name), mode)),
    utimens: (name, atime, mtime, reply) =>
        replyNow(reply, () => fs.lutimesSync(real(name), atime / 1000, mtime / 1000)),
    open: (name, flags, reply) => replyNow(reply, () => fs.openSync(real(name), openFlags(flags))),
    create: (name, mode, reply) => replyNow(reply, () => fs.openSync(real(name), 'w+', mode)),
    read: (name, file, into, length, offset, reply) =>
        replyNow((error, count) => reply(error || count), () => fs.readSync(file, into, 0, length, offset)),
    write: (name, file, from, length, offset, reply) =>
        replyNow((error, count) => reply(error || count), () => fs.writeSync(file, from, 0, length, offset)),
    release: (name, file, reply) => replyNow(reply, () => fs.closeSync(file)),
    unlink: (name, reply) => replyNow(reply, () => fs.unlinkSync(real(name))),
    mkdir: (name, mode, reply) => replyNow(reply, () => fs.mkdirSync(real(name), mode)),
};

if (process.env.SYNC === '1') Object.assign(operations, blocking);
// Without big_writes, which the binding has no setting for, writes would come in pages.
const fuse = new Fuse(mountPoint, operations, { timeout: false, fsname: 'passthrough,big_writes' });
fuse.mount((error) => {
    if (!error) return;
    console.error(error);
    process.exit(1);
});
