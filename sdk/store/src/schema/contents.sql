-- Contents of files: chunks that are swapped in one transaction, and what waits beside them until then.
--
-- Rows are given as a JSON array of [position, length, object], or [position, length, null] for chunks whose bytes lie in
-- the database: these follow each other in one bytea. What is refused is told by a code that is returned.

-- What is known of a file, and its chunks in [first, first + amount), with the bytes of those in
-- [data_first, data_first + data_amount) that lie in the database. One row without a chunk where there is none; no row
-- where there is no file.
create or replace function kemvi_store.chunks(
    t bigint, file bigint, first bigint, amount bigint, data_first bigint, data_amount bigint
) returns table (
    node_version bigint, node_size bigint, node_mtime bigint,
    at bigint, bytes int, name text, since bigint, contents bytea
) language sql stable as $$
    select n.version, n.size, n.mtime, c.position, c.length, c.object, c.version,
        case when c.position >= data_first and c.position < data_first + data_amount
            then substring(c.data from 1 for c.length) end
    from kemvi_store.node n
    left join kemvi_store.chunk c on c.tree = n.tree and c.node = n.id
        and c.position >= first and c.position < first + amount
    where n.tree = t and n.id = file and n.kind = 'f'
    order by c.position
$$;

-- The same of an upload, which no file has yet. No row where there is no upload.
create or replace function kemvi_store.upload_chunks(t bigint, upload bigint, first bigint, amount bigint)
returns table (at bigint, bytes int, name text, since bigint) language sql stable as $$
    select c.position, c.length, c.object, c.version
    from kemvi_store.upload u
    left join kemvi_store.chunk c on c.tree = u.tree and c.node = -u.id
        and c.position >= first and c.position < first + amount
    where u.tree = t and u.id = upload
    order by c.position
$$;

-- The bytes of chunks that lie in the database.
create or replace function kemvi_store.chunk_data(t bigint, file bigint, wanted bigint[])
returns table (at bigint, since bigint, contents bytea) language sql stable as $$
    select c.position, c.version, substring(c.data from 1 for c.length)
    from kemvi_store.chunk c
    where c.tree = t and c.node = file and c.data is not null and c.position = any (wanted)
$$;

create or replace function kemvi_store.discard(t bigint, objects text[]) returns void language sql volatile as $$
    insert into kemvi_store.garbage (tree, object)
    select t, o from unnest(objects) o where o is not null on conflict do nothing
$$;

-- Puts one row into the place of the one at its position. Most commits put no more.
create or replace function kemvi_store.put_chunk(t bigint, file bigint, item jsonb, bytes bytea, new_version bigint)
returns void language plpgsql volatile as $$
declare
    replaced text;
begin
    delete from kemvi_store.chunk c where c.tree = t and c.node = file and c.position = (item ->> 0)::bigint
    returning c.object into replaced;
    if replaced is not null then
        perform kemvi_store.discard(t, array[replaced]);
    end if;
    insert into kemvi_store.chunk (tree, node, position, length, object, data, version) values (
        t, file, (item ->> 0)::bigint, (item ->> 1)::int, item ->> 2, case when item ->> 2 is null then bytes end, new_version
    );
end $$;

-- Puts rows into the place of those at their positions.
create or replace function kemvi_store.put_chunks(t bigint, file bigint, rows jsonb, bytes bytea, new_version bigint)
returns void language plpgsql volatile as $$
declare
    replaced text[];
    taken int := 0;
    item jsonb;
begin
    if jsonb_array_length(rows) < 2 then
        perform kemvi_store.put_chunk(t, file, rows -> 0, bytes, new_version) where jsonb_array_length(rows) = 1;
        return;
    end if;
    with gone as (
        delete from kemvi_store.chunk c using jsonb_array_elements(rows) r
        where c.tree = t and c.node = file and c.position = (r ->> 0)::bigint
        returning c.object
    )
    select array_agg(object) into replaced from gone;
    perform kemvi_store.discard(t, replaced);

    insert into kemvi_store.chunk (tree, node, position, length, object, version)
    select t, file, (r ->> 0)::bigint, (r ->> 1)::int, r ->> 2, new_version
    from jsonb_array_elements(rows) r where r ->> 2 is not null;

    for item in select r from jsonb_array_elements(rows) with ordinality e (r, n) where r ->> 2 is null order by n loop
        insert into kemvi_store.chunk (tree, node, position, length, data, version) values (
            t, file, (item ->> 0)::bigint, (item ->> 1)::int,
            substring(bytes from taken + 1 for (item ->> 1)::int), new_version
        );
        taken := taken + (item ->> 1)::int;
    end loop;
end $$;

-- False when the upload was given up: what it held is gone. So it is when it lacks the last turn that its helper was told
-- of, because a copy of the database has taken over that did not have that yet.
create or replace function kemvi_store.keep_upload(t bigint, upload bigint, last_turn bigint) returns boolean
language plpgsql volatile as $$
begin
    update kemvi_store.upload u set since = now() where u.tree = t and u.id = upload and u.turn >= last_turn;
    return found;
end $$;

create or replace function kemvi_store.renew_upload(t bigint, upload bigint, request uuid, origin uuid) returns boolean
language sql volatile as $$
    select kemvi_store.keep_upload(t, upload, 0)
$$;

-- Puts chunks away for a commit to come. Asked twice it does what it did once. `is_new` makes the upload; without it, one
-- that was given up is not begun anew, and false is the answer. `turn` is another one for each call: with upload and
-- position it names the bytes. `last_turn` is the one before that is known to have been done.
create or replace function kemvi_store.stage_chunks(
    t bigint, upload bigint, is_new boolean, turn bigint, last_turn bigint, rows text, bytes bytea, request uuid, origin uuid
) returns boolean language plpgsql volatile as $$
begin
    if is_new then
        insert into kemvi_store.upload (tree, id) values (t, upload) on conflict (tree, id) do update set since = now();
    elsif not kemvi_store.keep_upload(t, upload, last_turn) then
        return false;
    end if;
    if kemvi_store.begin_change(t, request) then
        perform kemvi_store.put_chunks(t, -upload, rows::jsonb, bytes, turn);
        update kemvi_store.upload u set turn = stage_chunks.turn where u.tree = t and u.id = upload;
    end if;
    return true;
end $$;

-- Removes uploads with their chunks. An object may be named by a file too: of an upload whose answer was lost, and that a
-- commit did without.
create or replace function kemvi_store.drop_uploads(t bigint, uploads bigint[], request uuid, origin uuid) returns void
language plpgsql volatile as $$
declare
    dropped text[];
begin
    delete from kemvi_store.upload u where u.tree = t and u.id = any (uploads);
    with gone as (
        delete from kemvi_store.chunk c using unnest(uploads) u where c.tree = t and c.node = -u returning c.object
    )
    select array_agg(object) into dropped from gone;
    dropped := array(
        select o from unnest(dropped) o where not exists (select from kemvi_store.chunk c where c.tree = t and c.object = o)
    );
    perform kemvi_store.discard(t, dropped);
end $$;

-- Cuts a file's chunks to `base` bytes. The one in which the cut lies keeps its bytes; only its length says less.
create or replace function kemvi_store.cut_chunks(t bigint, file bigint, base bigint, new_version bigint) returns void
language plpgsql volatile as $$
declare
    chunk_bytes bigint := (select chunk_size from kemvi_store.tree where id = t);
    dropped text[];
begin
    with gone as (
        delete from kemvi_store.chunk c
        where c.tree = t and c.node = file and c.position * chunk_bytes >= base returning c.object
    )
    select array_agg(object) into dropped from gone;
    perform kemvi_store.discard(t, dropped);
    update kemvi_store.chunk c set length = base % chunk_bytes, version = new_version
    where c.tree = t and c.node = file and c.position = base / chunk_bytes and c.length > base % chunk_bytes;
end $$;

-- Makes the chunks of an upload those of a file. Their bytes stay where they are: only the keys of the rows change.
create or replace function kemvi_store.take_upload(t bigint, file bigint, upload bigint, new_version bigint)
returns void language plpgsql volatile as $$
declare
    replaced text[];
begin
    with gone as (
        delete from kemvi_store.chunk c using kemvi_store.chunk u
        where u.tree = t and u.node = -upload and c.tree = t and c.node = file and c.position = u.position
        returning c.object
    )
    select array_agg(object) into replaced from gone;
    perform kemvi_store.discard(t, replaced);
    update kemvi_store.chunk c set node = file, version = new_version where c.tree = t and c.node = -upload;
    delete from kemvi_store.upload u where u.tree = t and u.id = upload;
end $$;

-- Commits what was written to a file, as a change that is announced (see names.sql): cuts it to `base` bytes (null: does not),
-- swaps in the chunks of `upload` (null: none), whose last turn is given, and then those of `rows`, and makes it at least
-- `extent` bytes long. `new_mtime` null keeps the time. `unused`: objects that nothing will ever name.
--
-- `batch` names the commit for as long as its outcome is not known, also when it is asked for again much later. One that
-- was done before is told as `again`, with what is known of the file now.
--
-- `expected` is the version that a helper has taken for granted: 'EAGAIN', and nothing is done, if the file has another. Null:
-- any.
--
-- The time of a file that is written differs from the one before also where clocks differ by less than a minute: whoever
-- keeps contents sees by size and time whether they are still right.
create or replace procedure kemvi_store.commit_file(
    expected bigint, t bigint, file bigint, base bigint, extent bigint, new_mtime bigint, rows text, bytes bytea,
    taken_upload bigint, last_turn bigint, unused text[], batch uuid, request uuid, origin uuid,
    inout code text, inout again boolean, inout version bigint, inout size bigint, inout mtime bigint
) language plpgsql as $$
declare
    there kemvi_store.node;
    put jsonb := rows;
begin
    perform kemvi_store.hold(t);
    select * into there from kemvi_store.node n where n.tree = t and n.id = file and n.kind = 'f' for update;
    if not found then
        code := 'ESTALE';
        return;
    end if;
    -- As long as the file is locked here, nobody else makes this commit.
    again := kemvi_store.is_known(t, batch);
    if not again then
        code := case
            when there.version <> expected then 'EAGAIN'
            when taken_upload is not null and not kemvi_store.keep_upload(t, taken_upload, last_turn) then 'EIO'
        end;
        if code is not null then
            return;
        end if;
        perform kemvi_store.begin_change(t, batch);
        there.version := kemvi_store.next_version(there.version);
        if base is not null then
            perform kemvi_store.cut_chunks(t, file, base, there.version);
            there.size := least(there.size, base);
        end if;
        if taken_upload is not null then
            perform kemvi_store.take_upload(t, file, taken_upload, there.version);
        end if;
        perform kemvi_store.put_chunks(t, file, put, bytes, there.version);
        if cardinality(unused) > 0 then
            perform kemvi_store.discard(t, unused);
        end if;
        there.size := greatest(there.size, extent);
        -- A chunk that was filled up with what was there may reach beyond the end that another machine has set since.
        if taken_upload is not null or jsonb_array_length(put) > 1
            or (put #>> '{0,0}')::bigint > 0 or (put #>> '{0,1}')::bigint > there.size then
            perform kemvi_store.cut_chunks(t, file, there.size, there.version);
        end if;
        if new_mtime is not null then
            there.mtime := case when new_mtime <= there.mtime and there.mtime - new_mtime < 60000
                then there.mtime + 1 else new_mtime end;
        end if;
        update kemvi_store.node n set size = there.size, mtime = there.mtime, version = there.version
        where n.tree = t and n.id = file;
        perform kemvi_store.announce(t, origin, array[kemvi_store.path_of(t, file)]);
    end if;
    version := there.version;
    size := there.size;
    mtime := there.mtime;
    call kemvi_store.commit_together();
end $$;

-- Drops uploads that nobody has renewed for so many seconds; how many there were.
create or replace function kemvi_store.expire_uploads(t bigint, seconds bigint, request uuid, origin uuid)
returns int language plpgsql volatile as $$
declare
    old bigint[];
begin
    select array_agg(id) into old from (
        select u.id from kemvi_store.upload u
        where u.tree = t and u.since <= now() - seconds * interval '1 second' for update skip locked
    ) expired;
    perform kemvi_store.drop_uploads(t, old, request, origin) where old is not null;
    return coalesce(cardinality(old), 0);
end $$;

-- Up to `amount` objects that became garbage so many seconds ago and that no chunk names.
create or replace function kemvi_store.old_garbage(t bigint, seconds bigint, amount int)
returns table (name text) language sql stable as $$
    select g.object from kemvi_store.garbage g
    where g.tree = t and g.since <= now() - seconds * interval '1 second'
        and not exists (select from kemvi_store.chunk c where c.tree = t and c.object = g.object)
    limit amount
$$;

-- Those of the objects that neither a chunk nor the garbage names.
create or replace function kemvi_store.unreferenced(t bigint, objects text[])
returns table (name text) language sql stable as $$
    select o from unnest(objects) o
    where not exists (select from kemvi_store.chunk c where c.tree = t and c.object = o)
        and not exists (select from kemvi_store.garbage g where g.tree = t and g.object = o)
$$;

create or replace function kemvi_store.forget_garbage(t bigint, objects text[], request uuid, origin uuid) returns void
language sql volatile as $$
    delete from kemvi_store.garbage g where g.tree = t and g.object = any (objects)
$$;
