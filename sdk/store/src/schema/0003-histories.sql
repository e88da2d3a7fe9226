-- The last turn in which something was put into the upload. A database that lacks one that its helper was told of has lost
-- it, as a copy may that takes over.
alter table kemvi_store.upload add column turn bigint not null default 0;
