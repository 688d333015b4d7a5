-- Server side of the configuration registry: schema "registry", its tables
-- and the eleven functions that qv_hivectl calls.
--
-- Load into an existing database with
--   psql -v ON_ERROR_STOP=1 -d DATABASE -f sql/registry.sql
-- Loading again is harmless: tables and their rows are kept, functions
-- replaced, and an older schema is upgraded in place (see "Upgrade" below).
-- The packaged qv-hivectl-schema script loads, verifies and grants it.
--
-- Model. Every key is one row of registry.keys with its full path as first
-- spelled ("path"), the same with A-Z folded to a-z ("folded", the identity
-- of the key; byte-wise "C" collation) and the folded path of its parent.
-- The top of the registry is the row whose folded path is ''. Values hang on
-- the key's id, so renaming a subtree rewrites key rows only.
--
-- Names compare without regard to ASCII case only: fold() maps A-Z and
-- nothing else, whatever the database's locale. The first writer's spelling
-- is kept.
--
-- Names may be of any length. A btree holds a text of up to about 2.7 kB, so
-- indexes hold name_key() of a folded text: the text itself up to 256
-- characters, else its first 256 characters and its SHA-256. Short texts,
-- nearly all, thus keep their order in the index. The children of a key are
-- found through a hash index on the parent's folded path, which takes a
-- text of any length.
--
-- Every table has a primary key, so a publication of the schema replicates
-- updates and deletes (logical replication).
--
-- Concurrency. A removal, rename or copy takes transaction-level advisory
-- locks on folded paths (lock_paths; they write no WAL): its keys, source
-- and destination, exclusively, the levels above them shared. A writer of a
-- value into an existing key holds just that key's row FOR KEY SHARE, which
-- only deleting the row waits for; a writer that has to make the key shares
-- every level of its path instead. So a copy, rename or removal sees its
-- subtrees unchanged but for values stored into existing keys, a removal
-- waits for those and removes them too, and a writer that waited for a
-- removal makes the levels anew. Advisory locks are taken at a function's
-- start, in one order of the lock numbers, never while a row is held: no
-- two transactions wait for each other in a circle.
--
-- Parameters arrive as untyped text; no function is overloaded, so every
-- call resolves to exactly one function.

SET standard_conforming_strings = on;
SET client_min_messages = warning;

BEGIN;

CREATE SCHEMA IF NOT EXISTS registry;

-- Helpers of the indexes. Indexes and stored keys are built on them: they
-- must never change.

-- Under the "C" collation lower() maps A-Z to a-z and leaves every other
-- character as it is.
CREATE OR REPLACE FUNCTION registry.fold(p text) RETURNS text
  LANGUAGE sql IMMUTABLE PARALLEL SAFE
  AS $$ SELECT lower(p COLLATE "C") $$;

-- The index key of a folded text (see "Names may be of any length"). The
-- escape decoding of the text with its backslashes doubled gives its bytes.
CREATE OR REPLACE FUNCTION registry.name_key(folded text) RETURNS text
  LANGUAGE sql IMMUTABLE PARALLEL SAFE
  AS $$ SELECT CASE WHEN length(folded) <= 256 THEN folded COLLATE "C"
                    ELSE left(folded, 256) COLLATE "C"
                         || encode(sha256(decode(replace(folded, '\', '\\'), 'escape')), 'hex')
               END $$;

-- Upgrade -------------------------------------------------------------------
-- registry.schema_version() answers the version of the file last loaded.
-- Loading this file over an older schema first runs the upgrade steps from
-- the version found up to this file's, in this file's one transaction,
-- before the tables, indexes and functions below are created or replaced. A
-- schema with registry.keys but no schema_version() is version 1. A newer
-- schema is refused, so that an older package cannot downgrade it. The rows
-- of every version stay as they are, but for the index keys of long value
-- names.
DO $upgrade$
DECLARE
  file_version CONSTANT integer := 4;
  installed_version integer;
BEGIN
  IF to_regprocedure('registry.schema_version()') IS NOT NULL THEN
    EXECUTE 'SELECT registry.schema_version()' INTO installed_version;
  ELSIF to_regclass('registry.keys') IS NOT NULL THEN
    installed_version := 1;
  END IF;
  IF installed_version > file_version THEN
    RAISE EXCEPTION 'registry schema version % is newer than this file (version %)',
      installed_version, file_version;
  END IF;

  -- Versions 1 and 2 indexed whole names; version 3 replaced those indexes.
  IF installed_version < 3 THEN
    DROP INDEX registry.keys_folded;
    DROP INDEX registry.keys_parent;
    ALTER TABLE registry.vals DROP CONSTRAINT vals_pkey;
    DROP FUNCTION IF EXISTS registry.make_key(text);
  END IF;
  -- Version 3 indexed SHA-256 hashes of all names, held row locks, and had
  -- no primary key on vals. Version 4 keys values by name_key() and drops
  -- the foreign key, whose check locked the key row for every value stored.
  IF installed_version = 3 THEN
    DROP INDEX registry.keys_ident;
    DROP INDEX registry.keys_prefix;
    DROP INDEX registry.keys_parent_ident;
    DROP INDEX registry.vals_ident;
    DROP FUNCTION IF EXISTS registry.hold_key(text), registry.hold_level(text, text, text, boolean),
      registry.seize_pair(text, text, boolean), registry.share_ancestors(text),
      registry.below(text, text), registry.ident(text);
  END IF;
  IF installed_version < 4 THEN
    ALTER TABLE registry.vals DROP CONSTRAINT vals_key_id_fkey;
    ALTER TABLE registry.vals RENAME COLUMN folded_name TO name_key;
    UPDATE registry.vals SET name_key = registry.name_key(name_key) WHERE length(name_key) > 256;
    ALTER TABLE registry.vals ADD PRIMARY KEY (key_id, name_key);
    DROP FUNCTION IF EXISTS registry.parent_of(text);
  END IF;

  EXECUTE format('CREATE OR REPLACE FUNCTION registry.schema_version() RETURNS integer
                    LANGUAGE sql IMMUTABLE PARALLEL SAFE AS $$ SELECT %s $$', file_version);
END
$upgrade$;

CREATE TABLE IF NOT EXISTS registry.keys (
  id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
  path text NOT NULL,
  folded text COLLATE "C" NOT NULL,
  parent text COLLATE "C"  -- folded path of the parent; NULL for the top
);

-- A value of the key key_id. Only the functions below write this table and
-- remove a key's values with the key.
CREATE TABLE IF NOT EXISTS registry.vals (
  key_id bigint NOT NULL,
  name_key text COLLATE "C" NOT NULL,  -- name_key(fold(name))
  name text NOT NULL,
  type smallint NOT NULL,  -- wire code: 1 str, 2 bin (base64), 3 i32, 4 i64
  value text NOT NULL,
  PRIMARY KEY (key_id, name_key)
);

CREATE UNIQUE INDEX IF NOT EXISTS keys_folded_key ON registry.keys (registry.name_key(folded));
CREATE INDEX IF NOT EXISTS keys_parent_hash ON registry.keys USING hash (parent);
-- Earlier loads of this version found children through a btree on
-- name_key(parent), which cost more to keep and to read.
DROP INDEX IF EXISTS registry.keys_children;

-- Helpers (not called by the client).

-- The two conditions on a key's folded path, written so that the planner
-- inlines them and reads them through the index on name_key(folded).

-- Whether a key's folded path is folded_path.
CREATE OR REPLACE FUNCTION registry.is_key(folded text, folded_path text) RETURNS boolean
  LANGUAGE sql IMMUTABLE PARALLEL SAFE
  AS $$ SELECT registry.name_key(folded) = registry.name_key(folded_path) AND folded = folded_path $$;

-- Whether a key's folded path lies strictly below the folded path
-- folded_path, which is not the top.
CREATE OR REPLACE FUNCTION registry.is_below(folded text, folded_path text) RETURNS boolean
  LANGUAGE sql IMMUTABLE PARALLEL SAFE
  AS $$ SELECT starts_with(registry.name_key(folded), left(folded_path || '\', 256))
               AND starts_with(folded, folded_path || '\') $$;

-- The key of folded path folded_path, if it exists.
CREATE OR REPLACE FUNCTION registry.find_key(folded_path text) RETURNS SETOF registry.keys
  LANGUAGE sql STABLE
  AS $$ SELECT * FROM registry.keys WHERE registry.is_key(folded, folded_path) $$;

-- The keys strictly below folded path folded_path; below the top, all others.
CREATE OR REPLACE FUNCTION registry.keys_below(folded_path text) RETURNS SETOF registry.keys
  LANGUAGE sql STABLE
  AS $$ SELECT * FROM registry.keys WHERE folded_path <> '' AND registry.is_below(folded, folded_path)
        UNION ALL
        SELECT * FROM registry.keys WHERE folded_path = '' AND folded <> '' $$;

-- The key of folded path folded_path and the keys below it.
CREATE OR REPLACE FUNCTION registry.subtree(folded_path text) RETURNS SETOF registry.keys
  LANGUAGE sql STABLE
  AS $$ SELECT * FROM registry.find_key(folded_path)
        UNION ALL SELECT * FROM registry.keys_below(folded_path) $$;

-- The levels of a path from the top down: '', 'a', 'a\b' for 'a\b'.
CREATE OR REPLACE FUNCTION registry.path_levels(key_path text) RETURNS text[]
  LANGUAGE plpgsql IMMUTABLE PARALLEL SAFE
  AS $$
  DECLARE
    parts CONSTANT text[] := string_to_array(key_path, '\');
    level text := parts[1];
    levels text[] := ARRAY['', level];
  BEGIN
    IF key_path = '' THEN RETURN ARRAY['']; END IF;
    FOR depth IN 2 .. cardinality(parts) LOOP
      level := level || '\' || parts[depth];
      levels := levels || level;
    END LOOP;
    RETURN levels;
  END
  $$;

-- The one home of locking. Takes transaction-level advisory locks on the
-- given folded paths, exclusive ones if exclusive, and shared ones on every
-- level above them. Locks go in ascending order of their numbers, and every
-- function calls this once, before it touches a row: so no two transactions
-- wait for each other in a circle.
CREATE OR REPLACE FUNCTION registry.lock_paths(folded_paths text[], exclusive boolean)
  RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  BEGIN
    PERFORM CASE WHEN exclusive_lock THEN pg_advisory_xact_lock(lock_number)
                 ELSE pg_advisory_xact_lock_shared(lock_number) END
    FROM (SELECT DISTINCT ON (lock_number) hashtextextended(level, 4) AS lock_number,
                 exclusive AND level = ANY (folded_paths) AS exclusive_lock
          FROM unnest(folded_paths) AS folded_path,
               unnest(registry.path_levels(folded_path)) AS level
          ORDER BY lock_number, exclusive_lock DESC) AS wanted;
  END
  $$;

-- The id of the key at key_path, made with every missing level above it if
-- missing. The caller holds the levels of key_path locked (lock_paths), so
-- none of them goes away meanwhile.
CREATE OR REPLACE FUNCTION registry.find_or_make_key(key_path text) RETURNS bigint
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    key_id bigint;
    levels text[];
  BEGIN
    SELECT id INTO key_id FROM registry.find_key(registry.fold(key_path));
    IF key_id IS NULL THEN
      levels := registry.path_levels(key_path);
      INSERT INTO registry.keys (path, folded, parent)
      SELECT level, registry.fold(level), registry.fold(levels[depth - 1])
      FROM unnest(levels) WITH ORDINALITY AS level_list (level, depth)
      ORDER BY depth
      ON CONFLICT (registry.name_key(folded)) DO NOTHING;
      SELECT id INTO STRICT key_id FROM registry.find_key(registry.fold(key_path));
    END IF;
    RETURN key_id;
  END
  $$;

-- The path of the parent of a (non-top) path, as spelled; '' for a level
-- below the top.
CREATE OR REPLACE FUNCTION registry.parent_path(p text) RETURNS text
  LANGUAGE sql IMMUTABLE PARALLEL SAFE
  AS $$ SELECT CASE WHEN strpos(p, '\') = 0 THEN ''
                    ELSE left(p, length(p) - strpos(reverse(p), '\')) END $$;

-- The destination or source of a rename or copy: the empty path names the
-- key of empty name below the top, whose path is a single backslash (as a
-- key of empty name below R is 'R\').
CREATE OR REPLACE FUNCTION registry.move_path(p text) RETURNS text
  LANGUAGE sql IMMUTABLE PARALLEL SAFE
  AS $$ SELECT CASE WHEN p = '' THEN '\' ELSE p END $$;

-- Why a rename or copy of the key at folded path source_folded to
-- target_folded does nothing: 0 if both are the same key, 1 if the source
-- does not exist or one lies inside the other; NULL if it is to be done.
-- (PL/pgSQL: transfer_subtree calls it as a scalar, which an SQL function
-- with a subquery would have planned anew at every call.)
-- Earlier loads of this version took the paths as spelled, under other
-- argument names, which CREATE OR REPLACE cannot change.
DROP FUNCTION IF EXISTS registry.move_refusal(text, text);
CREATE FUNCTION registry.move_refusal(source_folded text, target_folded text) RETURNS integer
  LANGUAGE plpgsql STABLE
  AS $$
  BEGIN
    RETURN CASE WHEN NOT EXISTS (SELECT FROM registry.find_key(source_folded)) THEN 1
                WHEN source_folded = target_folded THEN 0
                WHEN registry.is_below(target_folded, source_folded)
                     OR registry.is_below(source_folded, target_folded) THEN 1
           END;
  END
  $$;

-- Removes the values and keys of folded path folded_path and below it; with
-- keep_key the key itself stays, without values. The keys go first: their
-- removal waits for the writers that hold them (add_value), and the values
-- are then read anew, with what those writers stored. Without the key there
-- is nothing below it either (every key has its parent, and the caller's
-- lock keeps new ones out): the search through the index entries that
-- earlier moves left behind is skipped.
CREATE OR REPLACE FUNCTION registry.remove_subtree(folded_path text, keep_key boolean)
  RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    emptied_keys bigint[];  -- the keys whose values go
  BEGIN
    IF NOT EXISTS (SELECT FROM registry.find_key(folded_path)) THEN RETURN; END IF;
    IF folded_path = '' THEN
      WITH removed AS (DELETE FROM registry.keys WHERE folded <> '' RETURNING id)
      SELECT array_agg(id) INTO emptied_keys FROM removed;
    ELSE
      WITH removed AS (
        DELETE FROM registry.keys
        WHERE registry.is_below(folded, folded_path)
           OR registry.is_key(folded, folded_path) AND NOT keep_key
        RETURNING id)
      SELECT array_agg(id) INTO emptied_keys FROM removed;
    END IF;
    IF keep_key THEN
      emptied_keys := emptied_keys || ARRAY(SELECT id FROM registry.find_key(folded_path));
    END IF;
    DELETE FROM registry.vals WHERE key_id = ANY (emptied_keys);
  END
  $$;

-- The eleven functions of the client.

-- The client calls most of them in a select list, where a function in SQL
-- that cannot be inlined is planned anew at every call; those are in
-- PL/pgSQL, which keeps its plans across calls.

CREATE OR REPLACE FUNCTION registry.has_key(p_path text) RETURNS boolean
  LANGUAGE plpgsql STABLE
  AS $$
  BEGIN
    RETURN p_path = '' OR EXISTS (SELECT FROM registry.find_key(registry.fold(p_path)));
  END
  $$;

CREATE OR REPLACE FUNCTION registry.get_value(p_path text, p_name text)
  RETURNS TABLE (type smallint, value text)
  LANGUAGE sql STABLE
  AS $$ SELECT v.type, v.value
        FROM registry.find_key(registry.fold(p_path)) AS k
        JOIN registry.vals AS v ON v.key_id = k.id
        WHERE v.name_key = registry.name_key(registry.fold(p_name))
          AND registry.fold(v.name) = registry.fold(p_name) $$;

CREATE OR REPLACE FUNCTION registry.has_value(p_path text, p_name text) RETURNS boolean
  LANGUAGE plpgsql STABLE
  AS $$
  BEGIN
    RETURN EXISTS (SELECT FROM registry.get_value(p_path, p_name));
  END
  $$;

-- Stores the value, making the key and any missing level above it. The
-- value goes into an existing key in one statement that holds the key's row
-- FOR KEY SHARE, a lock that only the key's removal conflicts with. If there
-- is no such key, it is made under the path locks of lock_paths, which keep
-- it from being removed, and the statement runs once more.
CREATE OR REPLACE FUNCTION registry.add_value(p_path text, p_name text, p_type integer,
                                              p_value text) RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  BEGIN
    LOOP
      INSERT INTO registry.vals (key_id, name_key, name, type, value)
      SELECT id, registry.name_key(registry.fold(p_name)), p_name, p_type, p_value
      FROM registry.keys WHERE registry.is_key(folded, registry.fold(p_path))
      FOR KEY SHARE
      ON CONFLICT (key_id, name_key) DO UPDATE SET type = EXCLUDED.type, value = EXCLUDED.value;
      EXIT WHEN FOUND;
      PERFORM registry.lock_paths(ARRAY[registry.fold(p_path)], false);
      PERFORM registry.find_or_make_key(p_path);
    END LOOP;
  END
  $$;

CREATE OR REPLACE FUNCTION registry.delete_value(p_path text, p_name text) RETURNS integer
  LANGUAGE plpgsql VOLATILE
  AS $$
  BEGIN
    DELETE FROM registry.vals AS v USING registry.find_key(registry.fold(p_path)) AS k
    WHERE v.key_id = k.id
      AND v.name_key = registry.name_key(registry.fold(p_name))
      AND registry.fold(v.name) = registry.fold(p_name);
    RETURN CASE WHEN FOUND THEN 0 ELSE 1 END;
  END
  $$;

-- Removes the key with its values and everything below it. A path that ends
-- in a backslash, or the empty path, names the key before it (or the top)
-- whose values and subkeys are removed while the key itself stays.
CREATE OR REPLACE FUNCTION registry.delete_key(p_path text) RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    keep_key CONSTANT boolean := p_path = '' OR right(p_path, 1) = '\';
    folded_path CONSTANT text COLLATE "C" :=
      registry.fold(CASE WHEN keep_key THEN left(p_path, -1) ELSE p_path END);
  BEGIN
    PERFORM registry.lock_paths(ARRAY[folded_path], true);
    PERFORM registry.remove_subtree(folded_path, keep_key);
  END
  $$;

-- Copies (copying) or moves the subtree at p_from to p_to; a move removes
-- an existing destination subtree first, a copy keeps what the source lacks
-- and overwrites values of the same name. Missing levels above the
-- destination are made. 0 on success, 1 if the source does not exist or one
-- path lies inside the other.
CREATE OR REPLACE FUNCTION registry.transfer_subtree(p_from text, p_to text, copying boolean)
  RETURNS integer
  LANGUAGE plpgsql VOLATILE
  AS $$
  DECLARE
    source_path CONSTANT text := registry.move_path(p_from);
    target_path CONSTANT text := registry.move_path(p_to);
    source_folded CONSTANT text COLLATE "C" := registry.fold(source_path);
    target_folded CONSTANT text COLLATE "C" := registry.fold(target_path);
    target_parent CONSTANT text COLLATE "C" := registry.fold(registry.parent_path(target_path));
    kept_from CONSTANT integer := length(source_path) + 1;
    refusal CONSTANT integer := registry.move_refusal(source_folded, target_folded);
  BEGIN
    IF refusal IS NOT NULL THEN RETURN refusal; END IF;
    PERFORM registry.lock_paths(ARRAY[source_folded, target_folded], true);
    IF NOT EXISTS (SELECT FROM registry.find_key(source_folded)) THEN RETURN 1; END IF;
    PERFORM registry.find_or_make_key(registry.parent_path(target_path));
    IF NOT copying THEN
      PERFORM registry.remove_subtree(target_folded, false);
      UPDATE registry.keys
      SET path = target_path || substr(path, kept_from),
          folded = target_folded || substr(folded, kept_from),
          parent = CASE WHEN folded = source_folded THEN target_parent
                        ELSE target_folded || substr(parent, kept_from) END
      WHERE registry.is_key(folded, source_folded) OR registry.is_below(folded, source_folded);
      RETURN 0;
    END IF;
    INSERT INTO registry.keys (path, folded, parent)
    SELECT target_path || substr(path, kept_from), target_folded || substr(folded, kept_from),
           CASE WHEN folded = source_folded THEN target_parent
                ELSE target_folded || substr(parent, kept_from) END
    FROM registry.subtree(source_folded)
    ORDER BY folded
    ON CONFLICT (registry.name_key(folded)) DO NOTHING;
    INSERT INTO registry.vals (key_id, name_key, name, type, value)
    SELECT target.id, v.name_key, v.name, v.type, v.value
    FROM registry.subtree(source_folded) AS source
    JOIN registry.vals AS v ON v.key_id = source.id
    CROSS JOIN LATERAL registry.find_key(target_folded || substr(source.folded, kept_from)) AS target
    ON CONFLICT (key_id, name_key) DO UPDATE SET type = EXCLUDED.type, value = EXCLUDED.value;
    RETURN 0;
  END
  $$;

CREATE OR REPLACE FUNCTION registry.rename_key(p_from text, p_to text) RETURNS integer
  LANGUAGE sql VOLATILE
  AS $$ SELECT registry.transfer_subtree(p_from, p_to, false) $$;

-- Despite its name, the whole subtree.
CREATE OR REPLACE FUNCTION registry.copy_values(p_from text, p_to text) RETURNS integer
  LANGUAGE sql VOLATILE
  AS $$ SELECT registry.transfer_subtree(p_from, p_to, true) $$;

CREATE OR REPLACE FUNCTION registry.get_values_cnt(p_path text) RETURNS integer
  LANGUAGE plpgsql STABLE
  AS $$
  BEGIN
    RETURN (SELECT count(*)::integer
            FROM registry.find_key(registry.fold(p_path)) AS k
            JOIN registry.vals AS v ON v.key_id = k.id);
  END
  $$;

-- In folded order of the names, and empty bin values last: a reader that
-- takes a value of no bytes for the end of the enumeration then misses only
-- those. The order is read from the stored name_key, folding only long names
-- anew, which costs less than folding every name; a name of 256 characters
-- sorts before the long names it begins. The key is looked up first, so
-- that its values are read straight from their index.
CREATE OR REPLACE FUNCTION registry.get_values(p_path text)
  RETURNS TABLE (name text, type smallint, value text)
  LANGUAGE sql STABLE
  AS $$ SELECT v.name, v.type, v.value
        FROM registry.vals AS v
        WHERE v.key_id = (SELECT id FROM registry.find_key(registry.fold(p_path)))
        ORDER BY v.type = 2 AND v.value = '', left(v.name_key, 256),
                 CASE WHEN length(v.name_key) > 256 THEN registry.fold(v.name) ELSE '' END $$;

-- Full paths of the direct subkeys, in folded order.
CREATE OR REPLACE FUNCTION registry.get_subkeys(p_path text) RETURNS SETOF text
  LANGUAGE plpgsql STABLE
  AS $$
  BEGIN
    RETURN QUERY
      SELECT path FROM registry.keys
      WHERE parent = registry.fold(p_path)
      ORDER BY folded;
  END
  $$;

-- The number of values of the key at key_path and of all keys below it; 0
-- if there is no such key. The empty path is the top.
CREATE OR REPLACE FUNCTION registry.subtree_value_count(key_path text) RETURNS bigint
  LANGUAGE sql STABLE
  AS $$ SELECT count(*)
        FROM registry.subtree(registry.fold(key_path)) AS k
        JOIN registry.vals AS v ON v.key_id = k.id $$;

-- Optional roles ------------------------------------------------------------
-- registry_reader may read (get, exists, show, export), registry_writer may
-- do everything. Loading this file does not create them (they are global to
-- the cluster, and creating them needs CREATEROLE); "qv-hivectl-schema grant"
-- does, and then calls registry.grant_roles(), which loading the file calls
-- too, so that the roles that exist cover the functions of this version.
CREATE OR REPLACE FUNCTION registry.grant_roles() RETURNS void
  LANGUAGE plpgsql VOLATILE
  AS $$
  BEGIN
    IF to_regrole('registry_reader') IS NOT NULL THEN
      GRANT USAGE ON SCHEMA registry TO registry_reader;
      GRANT SELECT ON registry.keys, registry.vals TO registry_reader;
      GRANT EXECUTE ON FUNCTION registry.schema_version(), registry.has_key(text),
        registry.has_value(text, text), registry.get_value(text, text),
        registry.get_values_cnt(text), registry.get_values(text),
        registry.get_subkeys(text), registry.subtree_value_count(text) TO registry_reader;
    END IF;
    IF to_regrole('registry_writer') IS NOT NULL THEN
      GRANT USAGE ON SCHEMA registry TO registry_writer;
      GRANT SELECT, INSERT, UPDATE, DELETE ON ALL TABLES IN SCHEMA registry TO registry_writer;
      GRANT USAGE ON ALL SEQUENCES IN SCHEMA registry TO registry_writer;
      GRANT EXECUTE ON ALL FUNCTIONS IN SCHEMA registry TO registry_writer;
    END IF;
  END
  $$;
DO $$ BEGIN PERFORM registry.grant_roles(); END $$;

COMMIT;
