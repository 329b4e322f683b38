--
-- PostgreSQL database dump
--

\restrict TVJyPHPuhK0udP6etjFQA1K6BvVGPOEou007rTdXbARKcpZEWNovV2PXrmQzVED

-- Dumped from database version 15.18 (Debian 15.18-0+deb12u1)
-- Dumped by pg_dump version 15.18 (Debian 15.18-0+deb12u1)

SET statement_timeout = 0;
SET lock_timeout = 0;
SET idle_in_transaction_session_timeout = 0;
SET client_encoding = 'UTF8';
SET standard_conforming_strings = on;
SELECT pg_catalog.set_config('search_path', '', false);
SET check_function_bodies = false;
SET xmloption = content;
SET client_min_messages = warning;
SET row_security = off;

SET default_tablespace = '';

SET default_table_access_method = heap;

--
-- Name: alias; Type: TABLE; Schema: public; Owner: postgres
--

CREATE TABLE public.alias (
    address character varying(255) NOT NULL,
    goto text NOT NULL,
    domain character varying(255) NOT NULL,
    created timestamp with time zone DEFAULT now(),
    modified timestamp with time zone DEFAULT now(),
    active boolean DEFAULT true NOT NULL
);


ALTER TABLE public.alias OWNER TO postgres;

--
-- Name: TABLE alias; Type: COMMENT; Schema: public; Owner: postgres
--

COMMENT ON TABLE public.alias IS 'Postfix Admin - Virtual Aliases';


--
-- Name: alias_domain; Type: TABLE; Schema: public; Owner: postgres
--

CREATE TABLE public.alias_domain (
    alias_domain character varying(255) NOT NULL,
    target_domain character varying(255) NOT NULL,
    created timestamp with time zone DEFAULT now(),
    modified timestamp with time zone DEFAULT now(),
    active boolean DEFAULT true NOT NULL
);


ALTER TABLE public.alias_domain OWNER TO postgres;

--
-- Name: TABLE alias_domain; Type: COMMENT; Schema: public; Owner: postgres
--

COMMENT ON TABLE public.alias_domain IS 'Postfix Admin - Domain Aliases';


--
-- Name: domain; Type: TABLE; Schema: public; Owner: postgres
--

CREATE TABLE public.domain (
    domain character varying(255) NOT NULL,
    description character varying(255) DEFAULT ''::character varying NOT NULL,
    aliases integer DEFAULT 0 NOT NULL,
    mailboxes integer DEFAULT 0 NOT NULL,
    maxquota bigint DEFAULT 0 NOT NULL,
    quota bigint DEFAULT 0 NOT NULL,
    transport character varying(255) DEFAULT NULL::character varying,
    backupmx boolean DEFAULT false NOT NULL,
    created timestamp with time zone DEFAULT now(),
    modified timestamp with time zone DEFAULT now(),
    active boolean DEFAULT true NOT NULL,
    password_expiry integer DEFAULT 0
);


ALTER TABLE public.domain OWNER TO postgres;

--
-- Name: TABLE domain; Type: COMMENT; Schema: public; Owner: postgres
--

COMMENT ON TABLE public.domain IS 'Postfix Admin - Virtual Domains';


--
-- Name: domain_admins; Type: TABLE; Schema: public; Owner: postgres
--

CREATE TABLE public.domain_admins (
    username character varying(255) NOT NULL,
    domain character varying(255) NOT NULL,
    created timestamp with time zone DEFAULT now(),
    active boolean DEFAULT true NOT NULL,
    id integer NOT NULL
);


ALTER TABLE public.domain_admins OWNER TO postgres;

--
-- Name: TABLE domain_admins; Type: COMMENT; Schema: public; Owner: postgres
--

COMMENT ON TABLE public.domain_admins IS 'Postfix Admin - Domain Admins';


--
-- Name: domain_admins_id_seq; Type: SEQUENCE; Schema: public; Owner: postgres
--

CREATE SEQUENCE public.domain_admins_id_seq
    AS integer
    START WITH 1
    INCREMENT BY 1
    NO MINVALUE
    NO MAXVALUE
    CACHE 1;


ALTER TABLE public.domain_admins_id_seq OWNER TO postgres;

--
-- Name: domain_admins_id_seq; Type: SEQUENCE OWNED BY; Schema: public; Owner: postgres
--

ALTER SEQUENCE public.domain_admins_id_seq OWNED BY public.domain_admins.id;


--
-- Name: mailbox; Type: TABLE; Schema: public; Owner: postgres
--

CREATE TABLE public.mailbox (
    username character varying(255) NOT NULL,
    password character varying(255) DEFAULT ''::character varying NOT NULL,
    name character varying(255) DEFAULT ''::character varying NOT NULL,
    maildir character varying(255) DEFAULT ''::character varying NOT NULL,
    quota bigint DEFAULT 0 NOT NULL,
    created timestamp with time zone DEFAULT now(),
    modified timestamp with time zone DEFAULT now(),
    active boolean DEFAULT true NOT NULL,
    domain character varying(255),
    local_part character varying(255) NOT NULL,
    phone character varying(30) DEFAULT ''::character varying NOT NULL,
    email_other character varying(255) DEFAULT ''::character varying NOT NULL,
    token character varying(255) DEFAULT ''::character varying NOT NULL,
    token_validity timestamp with time zone DEFAULT '2000-01-01 00:00:00+00'::timestamp with time zone,
    password_expiry timestamp with time zone DEFAULT '2000-01-01 00:00:00+00'::timestamp with time zone
);


ALTER TABLE public.mailbox OWNER TO postgres;

--
-- Name: TABLE mailbox; Type: COMMENT; Schema: public; Owner: postgres
--

COMMENT ON TABLE public.mailbox IS 'Postfix Admin - Virtual Mailboxes';


--
-- Name: domain_admins id; Type: DEFAULT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.domain_admins ALTER COLUMN id SET DEFAULT nextval('public.domain_admins_id_seq'::regclass);


--
-- Data for Name: alias; Type: TABLE DATA; Schema: public; Owner: postgres
--

COPY public.alias (address, goto, domain, created, modified, active) FROM stdin;
anna@example.com	anna@example.com	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
ben@example.com	ben@example.com,ben@elsewhere.example,ben#example.com@autoreply.example	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
erik@example.com	erik@example.com	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
user@example.net	user@example.net	example.net	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
a.schmidt@example.com	anna@example.org	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
boss@example.com	a.schmidt@example.com	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
team@example.com	anna@example.com, user@example.net,x@elsewhere.example	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
ours@example.net	team@example.com	example.net	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
forward@example.net	ben@example.com	example.net	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
nobody@example.com	nobody@example.net,erik@example.com	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
loop1@example.com	loop2@example.com,anna@example.com	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
loop2@example.com	loop1@example.com	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
pipe@example.com	|/usr/bin/tickets,anna@example.com	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
off@example.com	anna@example.com	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	f
@example.com	anna@example.com	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
\.


--
-- Data for Name: alias_domain; Type: TABLE DATA; Schema: public; Owner: postgres
--

COPY public.alias_domain (alias_domain, target_domain, created, modified, active) FROM stdin;
example.org	example.com	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
lost.example	old.example	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t
\.


--
-- Data for Name: domain; Type: TABLE DATA; Schema: public; Owner: postgres
--

COPY public.domain (domain, description, aliases, mailboxes, maxquota, quota, transport, backupmx, created, modified, active, password_expiry) FROM stdin;
ALL		0	0	0	0		f	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t	0
example.com	O'Hara; "Söhne" (1\\2)	0	0	0	0	virtual	f	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t	0
example.net	Second\nline	0	0	0	0	virtual	f	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t	0
example.org	names only	0	0	0	0	virtual	f	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t	0
lost.example		0	0	0	0	virtual	f	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t	0
old.example	switched off	0	0	0	0	virtual	f	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	f	0
backup.example	queue	0	0	0	0	relay:[10.0.0.1]	t	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t	0
\.


--
-- Data for Name: domain_admins; Type: TABLE DATA; Schema: public; Owner: postgres
--

COPY public.domain_admins (username, domain, created, active, id) FROM stdin;
anna@example.com	example.com	2024-01-02 03:04:05+00	t	1
root@admin.example	ALL	2024-01-02 03:04:05+00	t	2
\.


--
-- Data for Name: mailbox; Type: TABLE DATA; Schema: public; Owner: postgres
--

COPY public.mailbox (username, password, name, maildir, quota, created, modified, active, domain, local_part, phone, email_other, token, token_validity, password_expiry) FROM stdin;
anna@example.com	{SHA}x'; --	Anna Schmidt	example.com/anna/	0	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t	example.com	anna				2000-01-01 00:00:00+00	2000-01-01 00:00:00+00
ben@example.com	x	Ben	example.com/ben/	1048576	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t	example.com	ben				2000-01-01 00:00:00+00	2000-01-01 00:00:00+00
erik@example.com	x	Erik	example.com/erik/	0	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	f	example.com	erik				2000-01-01 00:00:00+00	2000-01-01 00:00:00+00
user@example.net	x	Zoë	example.net/user/	0	2024-01-02 03:04:05+00	2024-01-02 03:04:05+00	t	example.net	user				2000-01-01 00:00:00+00	2000-01-01 00:00:00+00
\.


--
-- Name: domain_admins_id_seq; Type: SEQUENCE SET; Schema: public; Owner: postgres
--

SELECT pg_catalog.setval('public.domain_admins_id_seq', 2, true);


--
-- Name: alias_domain alias_domain_pkey; Type: CONSTRAINT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.alias_domain
    ADD CONSTRAINT alias_domain_pkey PRIMARY KEY (alias_domain);


--
-- Name: alias alias_key; Type: CONSTRAINT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.alias
    ADD CONSTRAINT alias_key PRIMARY KEY (address);


--
-- Name: domain_admins domain_admins_pkey; Type: CONSTRAINT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.domain_admins
    ADD CONSTRAINT domain_admins_pkey PRIMARY KEY (id);


--
-- Name: domain domain_key; Type: CONSTRAINT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.domain
    ADD CONSTRAINT domain_key PRIMARY KEY (domain);


--
-- Name: mailbox mailbox_key; Type: CONSTRAINT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.mailbox
    ADD CONSTRAINT mailbox_key PRIMARY KEY (username);


--
-- Name: alias_address_active; Type: INDEX; Schema: public; Owner: postgres
--

CREATE INDEX alias_address_active ON public.alias USING btree (address, active);


--
-- Name: alias_domain_active; Type: INDEX; Schema: public; Owner: postgres
--

CREATE INDEX alias_domain_active ON public.alias_domain USING btree (alias_domain, active);


--
-- Name: alias_domain_idx; Type: INDEX; Schema: public; Owner: postgres
--

CREATE INDEX alias_domain_idx ON public.alias USING btree (domain);


--
-- Name: domain_domain_active; Type: INDEX; Schema: public; Owner: postgres
--

CREATE INDEX domain_domain_active ON public.domain USING btree (domain, active);


--
-- Name: mailbox_domain_idx; Type: INDEX; Schema: public; Owner: postgres
--

CREATE INDEX mailbox_domain_idx ON public.mailbox USING btree (domain);


--
-- Name: mailbox_username_active; Type: INDEX; Schema: public; Owner: postgres
--

CREATE INDEX mailbox_username_active ON public.mailbox USING btree (username, active);


--
-- Name: alias_domain alias_domain_alias_domain_fkey; Type: FK CONSTRAINT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.alias_domain
    ADD CONSTRAINT alias_domain_alias_domain_fkey FOREIGN KEY (alias_domain) REFERENCES public.domain(domain) ON DELETE CASCADE;


--
-- Name: alias alias_domain_fkey; Type: FK CONSTRAINT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.alias
    ADD CONSTRAINT alias_domain_fkey FOREIGN KEY (domain) REFERENCES public.domain(domain);


--
-- Name: alias_domain alias_domain_target_domain_fkey; Type: FK CONSTRAINT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.alias_domain
    ADD CONSTRAINT alias_domain_target_domain_fkey FOREIGN KEY (target_domain) REFERENCES public.domain(domain) ON DELETE CASCADE;


--
-- Name: domain_admins domain_admins_domain_fkey; Type: FK CONSTRAINT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.domain_admins
    ADD CONSTRAINT domain_admins_domain_fkey FOREIGN KEY (domain) REFERENCES public.domain(domain);


--
-- Name: mailbox mailbox_domain_fkey1; Type: FK CONSTRAINT; Schema: public; Owner: postgres
--

ALTER TABLE ONLY public.mailbox
    ADD CONSTRAINT mailbox_domain_fkey1 FOREIGN KEY (domain) REFERENCES public.domain(domain);


--
-- PostgreSQL database dump complete
--

\unrestrict TVJyPHPuhK0udP6etjFQA1K6BvVGPOEou007rTdXbARKcpZEWNovV2PXrmQzVED

