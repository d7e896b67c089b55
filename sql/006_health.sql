-- More about the host's health, and alerts about it.

ALTER TABLE vesk.host_samples
    ADD COLUMN cpu_pct        real,      -- busy share of all CPUs since the previous sample
    ADD COLUMN iowait_pct     real,      -- share of time spent waiting for disks
    ADD COLUMN swap_total_kb  bigint,
    ADD COLUMN swap_free_kb   bigint,
    ADD COLUMN net_rx_bps     real,      -- bytes per second, all interfaces but loopback
    ADD COLUMN net_tx_bps     real,
    ADD COLUMN disk_read_bps  real,      -- bytes per second, whole disks only
    ADD COLUMN disk_write_bps real,
    ADD COLUMN cpu_temp_c     real,      -- the hottest sensor
    ADD COLUMN pg_connections integer,
    ADD COLUMN pg_tps         real;      -- commits and rollbacks per second

-- A condition that held for several samples in a row, until it cleared.
CREATE TABLE vesk.alerts (
    id        bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    kind      text NOT NULL,   -- disk, memory, load, temperature, service
    subject   text NOT NULL,   -- such as a mount point or the name of a service
    message   text NOT NULL,
    opened_at timestamptz NOT NULL DEFAULT now(),
    closed_at timestamptz      -- NULL while open
);

-- One open alert per subject; closed ones stay as history.
CREATE UNIQUE INDEX alerts_one_open ON vesk.alerts (kind, subject) WHERE closed_at IS NULL;
