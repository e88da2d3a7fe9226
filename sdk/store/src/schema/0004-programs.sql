-- What programs of other versions have to know. `least`: programs that know the schema up to this version may work with it
-- as it is now. `functions`: whose they are, so that an older program does not put its own back.
alter table kemvi_store.meta add column least int not null default 0, add column functions text not null default '';
