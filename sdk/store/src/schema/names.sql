-- Names and attributes: one routine for each operation, so that a path is resolved where the rows are.
--
-- What is refused is told by a POSIX code that is returned, since an exception would be a line in the server's log for every
-- name that is looked up in vain. Checks come before the first change; what changes between a check and the lock after it
-- is a serialization failure (40001), after which the caller asks again.
--
-- Everything that changes a name or announces a path holds the lock of its tree: shared, or, to move a folder, alone.
-- So no path that was resolved or announced changes before the commit, and no folder can come to lie in itself.
--
-- Changes that are announced are procedures, which commit by themselves and then wait for the disk. Whoever notifies holds
-- one lock of the whole server from there to the end of the commit, and would hold it for as long as the disk takes to write
-- that: changes of all machines would be written one by one (8 connections: 550 a second, and 1390 so). So the commit that
-- announces does not wait for the disk, and another one after it does, for both, before the answer is given: that one together
-- with those of others (commit_together). A server that breaks down between the two loses what nobody was told is done; it
-- loses all connections too, and so everybody doubts what was heard from it. An announcement cannot be lost without its
-- change, nor told without it, as it could if it came after.
--
-- Calls are assignments to `nothing` where nothing comes of them: `perform` is a query of its own, and takes ten times as long.

-- The node at a path. No id: there is nothing. Then kind 'f' says that the path leads through a file, and otherwise parent
-- the folder that lacks the name; none, when there is no such folder.
create or replace function kemvi_store.resolve(t bigint, path text) returns kemvi_store.node
language plpgsql stable as $$
declare
    steps text[] := string_to_array(path, '/');
    last int := cardinality(steps);
    here kemvi_store.node;
    at bigint := -t;
begin
    if path = '/' then
        select * into here from kemvi_store.node n where n.id = at;
        return here;
    end if;
    for i in 2 .. last loop
        select * into here from kemvi_store.node n where n.parent = at and n.name = steps[i];
        if not found then
            here.parent := case when i = last then at end;
            return here;
        end if;
        exit when i = last;
        at := here.id;
        if here.kind = 'f' then
            here.id := null;
            return here;
        end if;
    end loop;
    return here;
end $$;

-- Why nothing can lie at a path of which resolve() gave this; null if something can, or does.
create or replace function kemvi_store.way_problem(there kemvi_store.node) returns text
language sql immutable as $$
    select case
        when there.id is not null then null
        when there.kind = 'f' then 'ENOTDIR'
        when there.parent is null then 'ENOENT'
    end
$$;

-- Null when there is no such node. Roots are below 0.
create or replace function kemvi_store.path_of(t bigint, node bigint) returns text
language plpgsql stable as $$
declare
    path text := '';
    at bigint := node;
    step record;
begin
    while at > 0 loop
        select n.parent, n.name into step from kemvi_store.node n where n.id = at;
        if not found then
            return null;
        end if;
        path := '/' || step.name || path;
        at := step.parent;
    end loop;
    return case when path = '' then '/' else path end;
end $$;

create or replace function kemvi_store.now_ms() returns bigint
language sql volatile as $$
    select floor(extract(epoch from clock_timestamp()) * 1000)::bigint
$$;

-- Ids and versions are never given a second time, also where the database has lost its last moments: a copy that lagged has
-- taken over, or a backup came back. Its sequence may then give numbers again, so each comes with 20 random bits; 33 are
-- left to count in what JavaScript can hold. Whoever knew what is lost by such an id finds nothing, and no other file.
create or replace function kemvi_store.new_node_id() returns bigint
language sql volatile as $$
    select (nextval('kemvi_store.node_id') << 20) + floor(random() * 1048576)::bigint
$$;

create or replace function kemvi_store.next_version(version bigint) returns bigint
language sql volatile as $$
    select (((version >> 20) + 1) << 20) + floor(random() * 1048576)::bigint
$$;

-- No folder of the tree moves until the end of the transaction.
create or replace function kemvi_store.hold(t bigint) returns void
language sql volatile as $$
    select pg_advisory_xact_lock_shared(1802333814, t::int)
$$;

-- The end of a change: commits it and its announcement, then waits for the disk. Called by nothing but procedures that are
-- called by themselves, since it commits.
create or replace procedure kemvi_store.commit_together()
language plpgsql as $$
declare
    nothing text;
begin
    nothing := set_config('synchronous_commit', 'off', true);
    commit;
    -- Something to write, if nothing that is ever read: so the commit after it waits, as the server is set, until everything
    -- that was committed before is kept too.
    nothing := pg_logical_emit_message(true, 'kemvi_store', ''::text);
end $$;

-- False when the request was committed already: then nothing is to be done. Waits for an earlier attempt of the same
-- request that still runs on the server after its connection was lost.
create or replace function kemvi_store.begin_change(t bigint, request uuid) returns boolean
language plpgsql volatile as $$
begin
    insert into kemvi_store.request (tree, id) values (t, request) on conflict do nothing;
    return found;
end $$;

create or replace function kemvi_store.is_known(t bigint, request uuid) returns boolean
language plpgsql volatile as $$
begin
    perform from kemvi_store.request r where r.tree = t and r.id = request;
    return found;
end $$;

-- The code, unless the request was committed already and is refused only for what it has done itself.
create or replace function kemvi_store.refusal(t bigint, request uuid, code text) returns text
language sql volatile as $$
    select case when not kemvi_store.is_known(t, request) then code end
$$;

-- Tells every helper that listens, when the transaction is committed, that something changed at these paths or beneath.
create or replace function kemvi_store.announce(t bigint, origin uuid, paths text[]) returns void
language plpgsql volatile as $$
declare
    notice text := json_build_object('tree', t, 'origin', origin, 'paths', paths)::text;
    told bigint;
    nothing text;
begin
    if octet_length(notice) > 7900 then
        delete from kemvi_store.change c where c.tree = t and c.at < now() - interval '1 hour';
        insert into kemvi_store.change (tree, paths) values (t, to_jsonb(paths)) returning number into told;
        notice := json_build_object('tree', t, 'origin', origin, 'number', told)::text;
    end if;
    nothing := pg_notify('kemvi_store', notice);
end $$;

-- A change in a folder is its new time. Where another transaction is just setting that, the folder is not waited for.
create or replace function kemvi_store.touch(folder bigint) returns void
language plpgsql volatile as $$
begin
    update kemvi_store.node n set mtime = kemvi_store.now_ms()
    where n.id = (select l.id from kemvi_store.node l where l.id = folder for no key update skip locked);
end $$;

-- Gives a folder the time of a change in it, and keeps it from being removed until the end of the transaction.
create or replace function kemvi_store.enter(folder bigint) returns void
language plpgsql volatile as $$
begin
    update kemvi_store.node n set mtime = kemvi_store.now_ms()
    where n.id = (select l.id from kemvi_store.node l where l.id = folder for no key update skip locked);
    if found then
        return;
    end if;
    perform from kemvi_store.node n where n.id = folder for key share;
    if not found then
        raise serialization_failure using message = 'the folder has just been removed';
    end if;
end $$;

-- Removes what resolve() has given, unless it was moved or removed since.
create or replace function kemvi_store.remove(t bigint, gone kemvi_store.node) returns void
language plpgsql volatile as $$
begin
    delete from kemvi_store.node n where n.id = gone.id and n.parent = gone.parent and n.name = gone.name;
    if not found then
        raise serialization_failure using message = 'it has just been moved or removed';
    end if;
    if gone.kind = 'd' then
        if not kemvi_store.is_empty(gone.id) then
            raise serialization_failure using message = 'something was just made in the folder';
        end if;
        return;
    end if;
    with dropped as (delete from kemvi_store.chunk c where c.tree = t and c.node = gone.id returning c.object)
    insert into kemvi_store.garbage (tree, object) select t, object from dropped where object is not null
    on conflict do nothing;
end $$;

create or replace function kemvi_store.is_empty(folder bigint) returns boolean
language plpgsql stable as $$
begin
    perform from kemvi_store.node n where n.parent = folder limit 1;
    return not found;
end $$;

create or replace function kemvi_store.getattr(t bigint, path text,
    out code text, out node bigint, out kind "char", out size bigint, out mtime bigint, out mode int, out version bigint)
language plpgsql stable as $$
declare
    there kemvi_store.node := kemvi_store.resolve(t, path);
begin
    if there.id is null then
        code := coalesce(kemvi_store.way_problem(there), 'ENOENT');
        return;
    end if;
    node := there.id;
    kind := there.kind;
    size := there.size;
    mtime := there.mtime;
    mode := there.mode;
    version := there.version;
end $$;

-- In one row, which clients read several times faster than one for each member: names, and for each one
-- kind, size, time and id as in 'f1024,1716800000000,77', both separated by slashes, which no name holds.
create or replace function kemvi_store.members(folder bigint) returns table (names text, facts text)
language sql stable as $$
    select string_agg(n.name, '/'), string_agg(concat(n.kind, n.size, ',', n.mtime, ',', n.id), '/')
    from kemvi_store.node n where n.parent = folder
$$;

create or replace function kemvi_store.readdir(t bigint, path text, out code text, out names text, out facts text)
language plpgsql stable as $$
declare
    folder kemvi_store.node := kemvi_store.resolve(t, path);
begin
    code := case when folder.id is null then coalesce(kemvi_store.way_problem(folder), 'ENOENT') when folder.kind = 'f' then 'ENOTDIR' end;
    if code is null then
        select m.names, m.facts into names, facts from kemvi_store.members(folder.id) m;
    end if;
end $$;

create or replace function kemvi_store.beneath(folder text, name text) returns text
language sql immutable as $$
    select case when folder = '/' then '/' || name else folder || '/' || name end
$$;

create or replace procedure kemvi_store.mkdir(t bigint, folder text, name text, request uuid, origin uuid, inout code text)
language plpgsql as $$
declare
    path text := kemvi_store.beneath(folder, name);
    there kemvi_store.node;
    nothing text;
begin
    nothing := kemvi_store.hold(t);
    there := kemvi_store.resolve(t, path);
    code := case when there.id is not null then 'EEXIST' else kemvi_store.way_problem(there) end;
    if code is not null then
        code := kemvi_store.refusal(t, request, code);
    elsif kemvi_store.begin_change(t, request) then
        nothing := kemvi_store.enter(there.parent);
        insert into kemvi_store.node (tree, id, parent, name, kind, mtime, mode)
        values (t, kemvi_store.new_node_id(), there.parent, name, 'd', kemvi_store.now_ms(), 493);
        nothing := kemvi_store.announce(t, origin, array[path]);
    end if;
    if code is null then
        call kemvi_store.commit_together();
    end if;
end $$;

-- The file, which is made if there is none.
create or replace procedure kemvi_store.create_file(t bigint, folder text, name text, request uuid, origin uuid,
    inout code text, inout node bigint, inout kind "char", inout size bigint, inout mtime bigint, inout mode int, inout version bigint)
language plpgsql as $$
declare
    path text := kemvi_store.beneath(folder, name);
    file kemvi_store.node;
    is_new boolean := false;
    nothing text;
begin
    nothing := kemvi_store.hold(t);
    file := kemvi_store.resolve(t, path);
    code := kemvi_store.way_problem(file);
    if code is null and file.id is null then
        is_new := kemvi_store.begin_change(t, request);
        code := case when not is_new then 'ENOENT' end; -- it was made, and removed by somebody since
    end if;
    if is_new then
        nothing := kemvi_store.enter(file.parent);
        insert into kemvi_store.node (tree, id, parent, name, kind, mtime, mode)
        values (t, kemvi_store.new_node_id(), file.parent, name, 'f', kemvi_store.now_ms(), 420)
        returning * into file;
        nothing := kemvi_store.announce(t, origin, array[path]);
    end if;
    if code is null then
        node := file.id;
        kind := file.kind;
        size := file.size;
        mtime := file.mtime;
        mode := file.mode;
        version := file.version;
        if is_new or kemvi_store.is_known(t, request) then
            call kemvi_store.commit_together();
        end if;
    end if;
end $$;

-- A file or an empty folder.
create or replace procedure kemvi_store.unlink(t bigint, folder text, name text, request uuid, origin uuid, inout code text)
language plpgsql as $$
declare
    path text := kemvi_store.beneath(folder, name);
    gone kemvi_store.node;
    nothing text;
begin
    nothing := kemvi_store.hold(t);
    gone := kemvi_store.resolve(t, path);
    code := case
        when gone.id is null then coalesce(kemvi_store.way_problem(gone), 'ENOENT')
        when gone.kind = 'd' and not kemvi_store.is_empty(gone.id) then 'ENOTEMPTY'
    end;
    if code is not null then
        code := kemvi_store.refusal(t, request, code);
    elsif kemvi_store.begin_change(t, request) then
        nothing := kemvi_store.remove(t, gone);
        nothing := kemvi_store.touch(gone.parent);
        nothing := kemvi_store.announce(t, origin, array[path]);
    end if;
    if code is null then
        call kemvi_store.commit_together();
    end if;
end $$;

-- As rename(2): what is there already is replaced, a folder only when it is empty.
create or replace procedure kemvi_store.rename(t bigint, old_folder text, old_name text, new_folder text, new_name text,
    request uuid, origin uuid, inout code text)
language plpgsql as $$
declare
    old_path text := kemvi_store.beneath(old_folder, old_name);
    new_path text := kemvi_store.beneath(new_folder, new_name);
    moved kemvi_store.node;
    replaced kemvi_store.node;
    nothing text;
begin
    nothing := kemvi_store.hold(t);
    moved := kemvi_store.resolve(t, old_path);
    if moved.kind = 'd' then
        commit; -- of nothing; but two who held the lock together could not both come to have it alone
        nothing := pg_advisory_xact_lock(1802333814, t::int);
        moved := kemvi_store.resolve(t, old_path);
    end if;
    replaced := kemvi_store.resolve(t, new_path);
    code := coalesce(kemvi_store.way_problem(moved), kemvi_store.way_problem(replaced), case
        when moved.id is null then 'ENOENT'
        when moved.kind = 'd' and starts_with(new_path, old_path || '/') then 'EINVAL'
        when replaced.id is null or replaced.id = moved.id then null
        when moved.kind = 'f' and replaced.kind = 'd' then 'EISDIR'
        when moved.kind = 'd' and replaced.kind = 'f' then 'ENOTDIR'
        when replaced.kind = 'd' and not kemvi_store.is_empty(replaced.id) then 'ENOTEMPTY'
    end);
    if code is not null then
        code := kemvi_store.refusal(t, request, code);
    elsif replaced.id is distinct from moved.id and kemvi_store.begin_change(t, request) then
        nothing := kemvi_store.move(t, moved, replaced, new_name);
        nothing := kemvi_store.announce(t, origin, array[old_path, new_path]);
    end if;
    if code is null then
        call kemvi_store.commit_together();
    end if;
end $$;

-- Moves what resolve() has given to where it gave what is to be replaced, if there is something, unless these were moved or
-- removed since.
create or replace function kemvi_store.move(t bigint, moved kemvi_store.node, replaced kemvi_store.node, new_name text) returns void
language plpgsql volatile as $$
declare
    nothing text;
begin
    nothing := kemvi_store.enter(replaced.parent);
    if replaced.id is not null then
        -- In the order of their numbers, so that two that change places do not wait for each other.
        perform from kemvi_store.node n where n.id in (moved.id, replaced.id) order by n.id for update;
        nothing := kemvi_store.remove(t, replaced);
    end if;
    update kemvi_store.node n set parent = replaced.parent, name = new_name
    where n.id = moved.id and n.parent = moved.parent and n.name = moved.name;
    if not found then
        raise serialization_failure using message = 'it has just been moved or removed';
    end if;
    if moved.parent <> replaced.parent then
        nothing := kemvi_store.touch(moved.parent);
    end if;
end $$;

-- Kept, though nothing shows it; so nobody is told.
create or replace function kemvi_store.chmod(t bigint, path text, new_mode int, request uuid, origin uuid) returns text
language plpgsql volatile as $$
declare
    there kemvi_store.node := kemvi_store.resolve(t, path);
begin
    if there.id is null then
        return coalesce(kemvi_store.way_problem(there), 'ENOENT');
    end if;
    update kemvi_store.node n set mode = new_mode where n.id = there.id and n.mode <> new_mode;
    return null;
end $$;

create or replace procedure kemvi_store.set_time(t bigint, path text, new_mtime bigint, request uuid, origin uuid,
    inout code text, inout node bigint)
language plpgsql as $$
declare
    there kemvi_store.node;
    nothing text;
begin
    nothing := kemvi_store.hold(t);
    there := kemvi_store.resolve(t, path);
    if there.id is null then
        code := kemvi_store.refusal(t, request, coalesce(kemvi_store.way_problem(there), 'ENOENT'));
    elsif kemvi_store.begin_change(t, request) then
        update kemvi_store.node n set mtime = new_mtime where n.id = there.id;
        if not found then
            raise serialization_failure using message = 'it has just been removed';
        end if;
        nothing := kemvi_store.announce(t, origin, array[path]);
    end if;
    if code is null then
        node := there.id;
        call kemvi_store.commit_together();
    end if;
end $$;

-- An estimate of the server's, for all trees: counting would take longer the larger the tree is, and fsync asks for this.
create or replace function kemvi_store.statfs(t bigint, out files bigint, out directories bigint, out bytes bigint)
language sql stable as $$
    select greatest(c.reltuples, 0)::bigint, 0::bigint, 0::bigint from pg_class c where c.oid = 'kemvi_store.node'::regclass
$$;

-- Forgets requests of which no answer can be awaited any more. Their ids begin with the time, so that few are looked at.
create or replace function kemvi_store.trim(t bigint, before uuid) returns void
language sql volatile as $$
    delete from kemvi_store.request r where r.tree = t and r.id < before and r.at < now() - interval '1 hour'
$$;
