PRAGMA foreign_keys=OFF;
BEGIN TRANSACTION;
CREATE TABLE config (
        `id` integer PRIMARY KEY AUTOINCREMENT NOT NULL,
        `name` TEXT NOT NULL UNIQUE DEFAULT '',
        `value` TEXT NOT NULL DEFAULT ''
        );
INSERT INTO config VALUES(1,'version','1847');
CREATE TABLE admin (
          `username` varchar(255) NOT NULL,
          `password` varchar(255) NOT NULL,
          `superadmin` tinyint(1) NOT NULL DEFAULT '0',
          `created` datetime NOT NULL default '2000-01-01',
          `modified` datetime NOT NULL default '2000-01-01',
          `active` tinyint(1) NOT NULL DEFAULT '1', `phone` varchar(30) NOT NULL DEFAULT '', `email_other` varchar(255) NOT NULL DEFAULT '', token varchar(255)  NOT NULL DEFAULT '', token_validity datetime NOT NULL default '2000-01-01',
          PRIMARY KEY (`username`));
CREATE TABLE alias (
          `address` varchar(255) NOT NULL,
          `goto` text NOT NULL,
          `domain` varchar(255) NOT NULL,
          `created` datetime NOT NULL default '2000-01-01',
          `modified` datetime NOT NULL default '2000-01-01',
          `active` tinyint(1) NOT NULL DEFAULT '1',
          PRIMARY KEY (`address`));
INSERT INTO alias VALUES('anna@example.com','anna@example.com','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('ben@example.com','ben@example.com,ben@elsewhere.example,ben#example.com@autoreply.example','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('erik@example.com','erik@example.com','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('user@example.net','user@example.net','example.net','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('a.schmidt@example.com','anna@example.org','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('boss@example.com','a.schmidt@example.com','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('team@example.com','anna@example.com, user@example.net,x@elsewhere.example','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('ours@example.net','team@example.com','example.net','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('forward@example.net','ben@example.com','example.net','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('nobody@example.com','nobody@example.net,erik@example.com','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('loop1@example.com','loop2@example.com,anna@example.com','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('loop2@example.com','loop1@example.com','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('pipe@example.com','|/usr/bin/tickets,anna@example.com','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias VALUES('off@example.com','anna@example.com','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',0);
INSERT INTO alias VALUES('@example.com','anna@example.com','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
CREATE TABLE alias_domain (
          `alias_domain` varchar(255) NOT NULL,
          `target_domain` varchar(255) NOT NULL,
          `created` datetime NOT NULL default '2000-01-01',
          `modified` datetime NOT NULL default '2000-01-01',
          `active` tinyint(1) NOT NULL DEFAULT '1',
          PRIMARY KEY (`alias_domain`));
INSERT INTO alias_domain VALUES('example.org','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
INSERT INTO alias_domain VALUES('lost.example','old.example','2024-01-02 03:04:05','2024-01-02 03:04:05',1);
CREATE TABLE domain (
          `domain` varchar(255) NOT NULL,
          `description` varchar(255) NOT NULL,
          `aliases` int(11) NOT NULL DEFAULT 0,
          `mailboxes` int(11) NOT NULL DEFAULT 0,
          `maxquota` bigint(20) NOT NULL DEFAULT 0,
          `quota` bigint(20) NOT NULL DEFAULT 0,
          `transport` varchar(255) NOT NULL,
          `backupmx` tinyint(1) NOT NULL DEFAULT '0',
          `created` datetime NOT NULL default '2000-01-01',
          `modified` datetime NOT NULL default '2000-01-01',
          `active` tinyint(1) NOT NULL DEFAULT '1', password_expiry int DEFAULT 0,
          PRIMARY KEY (`domain`));
INSERT INTO domain VALUES('ALL','',0,0,0,0,'',0,'2024-01-02 03:04:05','2024-01-02 03:04:05',1,0);
INSERT INTO domain VALUES('example.com','O''Hara; "Söhne" (1\2)',0,0,0,0,'virtual',0,'2024-01-02 03:04:05','2024-01-02 03:04:05',1,0);
INSERT INTO domain VALUES('example.net',replace('Second\nline','\n',char(10)),0,0,0,0,'virtual',0,'2024-01-02 03:04:05','2024-01-02 03:04:05',1,0);
INSERT INTO domain VALUES('example.org','names only',0,0,0,0,'virtual',0,'2024-01-02 03:04:05','2024-01-02 03:04:05',1,0);
INSERT INTO domain VALUES('lost.example','',0,0,0,0,'virtual',0,'2024-01-02 03:04:05','2024-01-02 03:04:05',1,0);
INSERT INTO domain VALUES('old.example','switched off',0,0,0,0,'virtual',0,'2024-01-02 03:04:05','2024-01-02 03:04:05',0,0);
INSERT INTO domain VALUES('backup.example','queue',0,0,0,0,'relay:[10.0.0.1]',1,'2024-01-02 03:04:05','2024-01-02 03:04:05',1,0);
CREATE TABLE domain_admins (
          `username` varchar(255) NOT NULL,
          `domain` varchar(255) NOT NULL,
          `created` datetime NOT NULL default '2000-01-01',
          `active` tinyint(1) NOT NULL DEFAULT '1');
INSERT INTO domain_admins VALUES('anna@example.com','example.com','2024-01-02 03:04:05',1);
INSERT INTO domain_admins VALUES('root@admin.example','ALL','2024-01-02 03:04:05',1);
CREATE TABLE fetchmail (
          `id` integer PRIMARY KEY AUTOINCREMENT NOT NULL,
          `domain` varchar(255) DEFAULT '',
          `mailbox` varchar(255) NOT NULL,
          `src_server` varchar(255) NOT NULL,
          `src_auth` varchar(255) DEFAULT NULL,
          `src_user` varchar(255) NOT NULL,
          `src_password` varchar(255) NOT NULL,
          `src_folder` varchar(255) NOT NULL,
          `poll_time` int(11)  NOT NULL DEFAULT '10',
          `fetchall` tinyint(1) NOT NULL DEFAULT '0',
          `keep` tinyint(1) NOT NULL DEFAULT '0',
          `protocol` text DEFAULT NULL,
          `usessl` tinyint(1) NOT NULL DEFAULT '0',
          `sslcertck` tinyint(1) NOT NULL DEFAULT '0',
          `sslcertpath` varchar(255) DEFAULT '',
          `sslfingerprint` varchar(255) DEFAULT '',
          `extra_options` text,
          `returned_text` text,
          `mda` varchar(255) NOT NULL,
          `date` datetime NOT NULL default '2000-01-01',
          `created` datetime NOT NULL default '2000-01-01',
          `modified` datetime NOT NULL default CURRENT_TIMESTAMP,
          `active` tinyint(1) NOT NULL DEFAULT '0', src_port int(11) NOT NULL DEFAULT 0);
CREATE TABLE mailbox (
          `username` varchar(255) NOT NULL,
          `password` varchar(255) NOT NULL,
          `name` varchar(255) NOT NULL,
          `maildir` varchar(255) NOT NULL,
          `quota` bigint(20) NOT NULL DEFAULT 0,
          `local_part` varchar(255) NOT NULL,
          `domain` varchar(255) NOT NULL,
          `created` datetime NOT NULL default '2000-01-01',
          `modified` datetime NOT NULL default '2000-01-01',
          `active` tinyint(1) NOT NULL DEFAULT '1', `phone` varchar(30) NOT NULL DEFAULT '', `email_other` varchar(255) NOT NULL DEFAULT '', token varchar(255)  NOT NULL DEFAULT '', token_validity datetime NOT NULL default '2000-01-01', password_expiry datetime NOT NULL default '2000-01-01',
          PRIMARY KEY (`username`));
INSERT INTO mailbox VALUES('anna@example.com','{SHA}x''; --','Anna Schmidt','example.com/anna/',0,'anna','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1,'','','','2000-01-01','2000-01-01');
INSERT INTO mailbox VALUES('ben@example.com','x','Ben','example.com/ben/',1048576,'ben','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',1,'','','','2000-01-01','2000-01-01');
INSERT INTO mailbox VALUES('erik@example.com','x','Erik','example.com/erik/',0,'erik','example.com','2024-01-02 03:04:05','2024-01-02 03:04:05',0,'','','','2000-01-01','2000-01-01');
INSERT INTO mailbox VALUES('user@example.net','x','Zoë','example.net/user/',0,'user','example.net','2024-01-02 03:04:05','2024-01-02 03:04:05',1,'','','','2000-01-01','2000-01-01');
CREATE TABLE quota (
          `username` varchar(255) NOT NULL,
          `path` varchar(100) NOT NULL,
          `current` bigint(20) NOT NULL DEFAULT 0,
          PRIMARY KEY (`username`,`path`));
CREATE TABLE quota2 (
          `username` varchar(255) NOT NULL,
          `bytes` bigint(20) NOT NULL DEFAULT 0,
          `messages` int(11) NOT NULL DEFAULT 0,
          PRIMARY KEY (`username`));
CREATE TABLE vacation (
          `email` varchar(255) NOT NULL,
          `subject` varchar(255) NOT NULL,
          `body` text NOT NULL,
          `activefrom` datetime NOT NULL default '2000-01-01',
          `activeuntil` datetime NOT NULL default '2038-01-18',
          `cache` text NOT NULL DEFAULT '',
          `domain` varchar(255) NOT NULL,
          `interval_time` int(11) NOT NULL DEFAULT 0,
          `created` datetime NOT NULL default '2000-01-01',
          `modified` datetime NOT NULL default CURRENT_TIMESTAMP,
          `active` tinyint(1) NOT NULL DEFAULT '1',
          PRIMARY KEY (`email`));
CREATE TABLE vacation_notification (
          `on_vacation` varchar(255) NOT NULL,
          `notified` varchar(255) NOT NULL,
          `notified_at` datetime NOT NULL default CURRENT_TIMESTAMP,
          PRIMARY KEY (`on_vacation`,`notified`),
          CONSTRAINT `vacation_notification_pkey` FOREIGN KEY (`on_vacation`) REFERENCES `vacation` (`email`) ON DELETE CASCADE);
CREATE TABLE log (
          `id` integer PRIMARY KEY AUTOINCREMENT NOT NULL,
          `timestamp` datetime NOT NULL default '2000-01-01',
          `username` varchar(255) NOT NULL,
          `domain` varchar(255) NOT NULL,
          `action` varchar(255) NOT NULL,
          `data` text NOT NULL);
DELETE FROM sqlite_sequence;
INSERT INTO sqlite_sequence VALUES('config',1);
COMMIT;
