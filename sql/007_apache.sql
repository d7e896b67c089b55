-- The web server's load, read from its status page whenever the host is sampled.
ALTER TABLE vesk.host_samples
    ADD COLUMN apache_rps   real,      -- requests per second since the previous sample
    ADD COLUMN apache_bps   real,      -- bytes sent per second
    ADD COLUMN apache_busy  integer,   -- workers serving a request at that moment
    ADD COLUMN apache_slots integer;   -- the most requests it can serve at once
