// A small web server to try the example with: lists and holds a folder, each answer after a delay.
//     node server.mjs FOLDER [PORT [MILLISECONDS]]
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';

const [folder, port = '8080', delay = '50'] = process.argv.slice(2);
if (folder === undefined) {
    console.error('usage: node server.mjs FOLDER [PORT [MILLISECONDS]]');
    process.exit(2);
}

function listing(place) {
    const members = fs.readdirSync(place, { withFileTypes: true }).filter((member) => member.isFile() || member.isDirectory());
    return members.map(({ name }) => {
        const { size, mtime, isDirectory } = stat(path.join(place, name));
        return { name, type: isDirectory ? 'directory' : 'file', mtime, ...(isDirectory ? {} : { size }) };
    });
}

function stat(place) {
    const found = fs.statSync(place);
    return { size: found.size, mtime: found.mtime.toUTCString(), isDirectory: found.isDirectory() };
}

function answer(request, response) {
    const wanted = path.posix.normalize(decodeURIComponent(new URL(request.url, 'http://host').pathname));
    const place = path.join(folder, wanted);
    if (stat(place).isDirectory) {
        response.setHeader('content-type', 'application/json');
        response.end(JSON.stringify(listing(place)));
        return;
    }
    const data = fs.readFileSync(place);
    const range = /^bytes=(\d+)-(\d+)$/.exec(request.headers.range ?? '');
    if (range === null) response.end(data);
    else if (Number(range[1]) >= data.length) response.writeHead(416).end();
    else response.writeHead(206).end(data.subarray(Number(range[1]), Number(range[2]) + 1));
}

const server = http.createServer((request, response) => {
    setTimeout(() => {
        try {
            answer(request, response);
        } catch (error) {
            response.writeHead(error.code === 'ENOENT' ? 404 : 500).end();
        }
    }, Number(delay));
});
server.listen(Number(port), '127.0.0.1', () => console.log(`http://127.0.0.1:${server.address().port}/`));
