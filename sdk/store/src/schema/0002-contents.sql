-- What contents need beside the chunks themselves.

-- Objects of a tree lie under its key, so that two databases that are given one bucket never meet in it.
alter table kemvi_store.tree add column key uuid not null default gen_random_uuid();

-- The version of its file that brought the chunk: with node and position it names the bytes for good, as the name of an
-- object does.
alter table kemvi_store.chunk add column version bigint not null default 0;
create index chunk_object on kemvi_store.chunk (tree, object) where object is not null;

-- What a helper has put away before its commit: chunks whose node is minus the upload's id. A helper that works on one
-- renews `since`; one that was not renewed for long belongs to nobody any more.
create table kemvi_store.upload (
    tree bigint not null,
    id bigint not null,
    since timestamptz not null default now(),
    primary key (tree, id)
);
