-- The nodes of one tree, for who looks at all of them: in a database of many trees they are few of the table. By the number
-- with its sign turned, so that only who asks in this way (-tree = -7) is answered from here: an index by tree itself could be
-- taken for any question, and for one node be read from end to end.
create index node_of_tree on kemvi_store.node ((-tree));
